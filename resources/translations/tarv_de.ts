<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de" sourcelanguage="en">
<context>
    <name>AboutPanel</name>
    <message>
        <source>About Tarv</source>
        <translation>Über Tarv</translation>
    </message>
    <message>
        <source>Tarv</source>
        <translation>Tarv</translation>
    </message>
    <message>
        <source>Version %@</source>
        <translation>Version %@</translation>
    </message>
    <message>
        <source>Runs virtual machines and shows their screens.</source>
        <translation>Startet virtuelle Maschinen und zeigt ihre Bildschirme.</translation>
    </message>
</context>
<context>
    <name>AdministratorRight</name>
    <message>
        <source>The administrator right can&apos;t be asked for: there is no system bus</source>
        <translation>Das Administratorrecht kann nicht erfragt werden: Es gibt keinen Systembus</translation>
    </message>
    <message>
        <source>The administrator right can&apos;t be asked for: %1</source>
        <translation>Das Administratorrecht kann nicht erfragt werden: %1</translation>
    </message>
    <message>
        <source>The administrator right was refused</source>
        <translation>Das Administratorrecht wurde verweigert</translation>
    </message>
</context>
<context>
    <name>Alert</name>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
</context>
<context>
    <name>AppDelegate</name>
    <message>
        <source>Failed to open display</source>
        <translation>Der Bildschirm konnte nicht geöffnet werden</translation>
    </message>
    <message>
        <source>Close</source>
        <translation>Schließen</translation>
    </message>
    <message>
        <source>There is no browser to open %1 with</source>
        <translation>Es gibt keinen Browser, der %1 öffnen könnte</translation>
    </message>
</context>
<context>
    <name>EULAWindowController</name>
    <message>
        <source>Tarv Agreement</source>
        <translation>Tarv-Lizenzvereinbarung</translation>
    </message>
    <message>
        <source>Read this agreement before you use Tarv.</source>
        <translation>Bitte lesen Sie diese Vereinbarung, bevor Sie Tarv verwenden.</translation>
    </message>
    <message>
        <source>Agreement</source>
        <translation>Vereinbarung</translation>
    </message>
    <message>
        <source>The agreement can&apos;t be shown.

%1</source>
        <translation>Die Vereinbarung kann nicht angezeigt werden.

%1</translation>
    </message>
    <message>
        <source>&amp;Not Now</source>
        <translation>&amp;Nicht jetzt</translation>
    </message>
    <message>
        <source>&amp;Accept</source>
        <translation>&amp;Annehmen</translation>
    </message>
</context>
<context>
    <name>ForceStopOffer</name>
    <message>
        <source>Wait</source>
        <translation>Warten</translation>
    </message>
    <message>
        <source>Force Stop</source>
        <translation>Stoppen erzwingen</translation>
    </message>
</context>
<context>
    <name>LibraryReader</name>
    <message>
        <source>Another program keeps its files locked.</source>
        <translation>Ein anderes Programm hält die Dateien gesperrt.</translation>
    </message>
</context>
<context>
    <name>ListActions</name>
    <message>
        <source>Delete</source>
        <translation>Löschen</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
</context>
<context>
    <name>ListChrome</name>
    <message>
        <source>Version %@</source>
        <translation>Version %@</translation>
    </message>
    <message>
        <source>Choose New VM… to make one.</source>
        <translation>Mit „Neue VM …“ legen Sie eine an.</translation>
    </message>
    <message>
        <source>Make one with the command &quot;tarvctl create&quot;.</source>
        <translation>Mit dem Befehl „tarvctl create“ legen Sie eine an.</translation>
    </message>
    <message>
        <source>1 VM could not be read</source>
        <translation>1 VM konnte nicht gelesen werden</translation>
    </message>
    <message numerus="yes">
        <source>%n VMs could not be read</source>
        <translation>
            <numerusform>%n VM konnte nicht gelesen werden</numerusform>
            <numerusform>%n VMs konnten nicht gelesen werden</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>ListCommands</name>
    <message>
        <source>Stopping ...</source>
        <translation>Wird gestoppt …</translation>
    </message>
    <message>
        <source>Suspending ...</source>
        <translation>Wird in den Ruhezustand versetzt …</translation>
    </message>
    <message>
        <source>Rebooting ...</source>
        <translation>Wird neu gestartet …</translation>
    </message>
    <message>
        <source>Copying ...</source>
        <translation>Wird kopiert …</translation>
    </message>
    <message>
        <source>Are you sure you want to delete %@?</source>
        <translation>Möchten Sie „%@“ wirklich löschen?</translation>
    </message>
    <message>
        <source>Are you sure you want to delete %lu VMs?</source>
        <translation>Möchten Sie %lu VMs wirklich löschen?</translation>
    </message>
</context>
<context>
    <name>ListMenu</name>
    <message>
        <source>Start</source>
        <translation>Starten</translation>
    </message>
    <message>
        <source>Force Start</source>
        <translation>Starten erzwingen</translation>
    </message>
    <message>
        <source>Start in Recovery</source>
        <translation>Im Wiederherstellungsmodus starten</translation>
    </message>
    <message>
        <source>Suspend</source>
        <translation>In den Ruhezustand versetzen</translation>
    </message>
    <message>
        <source>Reboot</source>
        <translation>Neu starten</translation>
    </message>
    <message>
        <source>Stop</source>
        <translation>Stoppen</translation>
    </message>
    <message>
        <source>Force Stop</source>
        <translation>Stoppen erzwingen</translation>
    </message>
    <message>
        <source>Rename</source>
        <translation>Umbenennen</translation>
    </message>
    <message>
        <source>Clone</source>
        <translation>Klonen</translation>
    </message>
    <message>
        <source>Copy</source>
        <translation>Kopieren</translation>
    </message>
    <message>
        <source>Delete…</source>
        <translation>Löschen …</translation>
    </message>
    <message>
        <source>New VM…</source>
        <translation>Neue VM …</translation>
    </message>
</context>
<context>
    <name>LongRunningOperationWindowController</name>
    <message>
        <source>Progress</source>
        <translation>Fortschritt</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Run in &amp;Background</source>
        <translation>Im &amp;Hintergrund fortsetzen</translation>
    </message>
</context>
<context>
    <name>MachineControl</name>
    <message>
        <source>Stopping…</source>
        <translation>Wird gestoppt …</translation>
    </message>
    <message>
        <source>Suspending…</source>
        <translation>Wird in den Ruhezustand versetzt …</translation>
    </message>
    <message>
        <source>Rebooting…</source>
        <translation>Wird neu gestartet …</translation>
    </message>
    <message>
        <source>Are you sure you want to delete the VM?</source>
        <translation>Möchten Sie die VM wirklich löschen?</translation>
    </message>
    <message>
        <source>Delete</source>
        <translation>Löschen</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
</context>
<context>
    <name>MainMenu</name>
    <message>
        <source>&amp;Tarv</source>
        <translation>&amp;Tarv</translation>
    </message>
    <message>
        <source>&amp;About Tarv</source>
        <translation>&amp;Über Tarv</translation>
    </message>
    <message>
        <source>&amp;Quit Tarv</source>
        <translation>Tarv &amp;beenden</translation>
    </message>
    <message>
        <source>&amp;File</source>
        <translation>&amp;Datei</translation>
    </message>
    <message>
        <source>&amp;New VM…</source>
        <translation>&amp;Neue VM …</translation>
    </message>
    <message>
        <source>&amp;Open VM</source>
        <translation>VM &amp;öffnen</translation>
    </message>
    <message>
        <source>&amp;Close</source>
        <translation>&amp;Schließen</translation>
    </message>
    <message>
        <source>&amp;Edit</source>
        <translation>&amp;Bearbeiten</translation>
    </message>
    <message>
        <source>&amp;Undo</source>
        <translation>&amp;Rückgängig</translation>
    </message>
    <message>
        <source>&amp;Redo</source>
        <translation>&amp;Wiederholen</translation>
    </message>
    <message>
        <source>Cu&amp;t</source>
        <translation>&amp;Ausschneiden</translation>
    </message>
    <message>
        <source>&amp;Copy</source>
        <translation>&amp;Kopieren</translation>
    </message>
    <message>
        <source>&amp;Paste</source>
        <translation>&amp;Einfügen</translation>
    </message>
    <message>
        <source>Select &amp;All</source>
        <translation>A&amp;lles auswählen</translation>
    </message>
    <message>
        <source>&amp;Shared Pasteboard</source>
        <translation>&amp;Gemeinsame Zwischenablage</translation>
    </message>
    <message>
        <source>&amp;Virtual Machine</source>
        <translation>Virtuelle &amp;Maschine</translation>
    </message>
    <message>
        <source>&amp;Start</source>
        <translation>&amp;Starten</translation>
    </message>
    <message>
        <source>&amp;Force Start</source>
        <translation>Starten &amp;erzwingen</translation>
    </message>
    <message>
        <source>Start in &amp;Recovery</source>
        <translation>Im &amp;Wiederherstellungsmodus starten</translation>
    </message>
    <message>
        <source>S&amp;uspend</source>
        <translation>In den &amp;Ruhezustand versetzen</translation>
    </message>
    <message>
        <source>Re&amp;boot</source>
        <translation>&amp;Neu starten</translation>
    </message>
    <message>
        <source>S&amp;top</source>
        <translation>S&amp;toppen</translation>
    </message>
    <message>
        <source>Force St&amp;op</source>
        <translation>Stoppen er&amp;zwingen</translation>
    </message>
    <message>
        <source>Rena&amp;me</source>
        <translation>&amp;Umbenennen</translation>
    </message>
    <message>
        <source>&amp;Clone</source>
        <translation>&amp;Klonen</translation>
    </message>
    <message>
        <source>Co&amp;py</source>
        <translation>Ko&amp;pieren</translation>
    </message>
    <message>
        <source>&amp;Delete…</source>
        <translation>&amp;Löschen …</translation>
    </message>
    <message>
        <source>Take Scree&amp;nshot</source>
        <translation>&amp;Bildschirmfoto aufnehmen</translation>
    </message>
    <message>
        <source>&amp;Lock Keyboard</source>
        <translation>T&amp;astatur an die VM binden</translation>
    </message>
    <message>
        <source>V&amp;iew</source>
        <translation>&amp;Ansicht</translation>
    </message>
    <message>
        <source>Zoom &amp;In</source>
        <translation>&amp;Vergrößern</translation>
    </message>
    <message>
        <source>Zoom &amp;Out</source>
        <translation>Ver&amp;kleinern</translation>
    </message>
    <message>
        <source>&amp;Actual Size</source>
        <translation>&amp;Originalgröße</translation>
    </message>
    <message>
        <source>&amp;Half Size</source>
        <translation>&amp;Halbe Größe</translation>
    </message>
    <message>
        <source>&amp;Resolution…</source>
        <translation>&amp;Auflösung …</translation>
    </message>
    <message>
        <source>&amp;Live Resolution</source>
        <translation>Auflösung folgt dem &amp;Fenster</translation>
    </message>
    <message>
        <source>Hi&amp;DPI</source>
        <translation>Hi&amp;DPI</translation>
    </message>
    <message>
        <source>&amp;Full Screen</source>
        <translation>Voll&amp;bild</translation>
    </message>
    <message>
        <source>&amp;Window</source>
        <translation>&amp;Fenster</translation>
    </message>
    <message>
        <source>&amp;Minimize</source>
        <translation>&amp;Minimieren</translation>
    </message>
    <message>
        <source>&amp;Virtual Machines</source>
        <translation>&amp;Virtuelle Maschinen</translation>
    </message>
    <message>
        <source>&amp;Help</source>
        <translation>&amp;Hilfe</translation>
    </message>
    <message>
        <source>&amp;Getting Started</source>
        <translation>&amp;Erste Schritte</translation>
    </message>
    <message>
        <source>Main menu</source>
        <translation>Hauptmenü</translation>
    </message>
</context>
<context>
    <name>OpenScreen</name>
    <message>
        <source>%1 (display %2)</source>
        <translation>%1 (Bildschirm %2)</translation>
    </message>
    <message>
        <source>%1 - Control and Alt release the pointer</source>
        <translation>%1 – Strg und Alt geben den Zeiger frei</translation>
    </message>
    <message>
        <source>%1 - Control and Alt release pointer and keyboard</source>
        <translation>%1 – Strg und Alt geben Zeiger und Tastatur frei</translation>
    </message>
    <message>
        <source>%1 - Control and Alt release the keyboard</source>
        <translation>%1 – Strg und Alt geben die Tastatur frei</translation>
    </message>
</context>
<context>
    <name>ResolutionWindow</name>
    <message>
        <source>Resolution</source>
        <translation>Auflösung</translation>
    </message>
    <message>
        <source>&amp;Width in pixels:</source>
        <translation>&amp;Breite in Pixeln:</translation>
    </message>
    <message>
        <source>H&amp;eight in pixels:</source>
        <translation>&amp;Höhe in Pixeln:</translation>
    </message>
    <message>
        <source>Hi&amp;DPI</source>
        <translation>Hi&amp;DPI</translation>
    </message>
</context>
<context>
    <name>ResolutionWindowController</name>
    <message>
        <source>Must be a number from 1 to %1</source>
        <translation>Muss eine Zahl von 1 bis %1 sein</translation>
    </message>
</context>
<context>
    <name>RichText</name>
    <message>
        <source>not a rich-text document</source>
        <translation>kein Rich-Text-Dokument</translation>
    </message>
    <message>
        <source>groups are nested too deeply</source>
        <translation>die Gruppen sind zu tief verschachtelt</translation>
    </message>
    <message>
        <source>cut off: a group has no end</source>
        <translation>abgeschnitten: Eine Gruppe hat kein Ende</translation>
    </message>
    <message>
        <source>too large</source>
        <translation>zu groß</translation>
    </message>
</context>
<context>
    <name>ScreenView</name>
    <message>
        <source>Screen of the virtual machine</source>
        <translation>Bildschirm der virtuellen Maschine</translation>
    </message>
</context>
<context>
    <name>Screenshot</name>
    <message>
        <source>d MMM yyyy&apos; at &apos;HH.mm.ss</source>
        <translation>d. MMM yyyy&apos; um &apos;HH.mm.ss</translation>
    </message>
</context>
<context>
    <name>TarvCLI</name>
    <message>
        <source>The launch service can&apos;t be reached at %1: %2</source>
        <translation>Der Startdienst ist unter %1 nicht erreichbar: %2</translation>
    </message>
</context>
<context>
    <name>TarvCTL</name>
    <message>
        <source>The setting &quot;tarvctl_executable&quot; names no program to run &quot;%1&quot; with</source>
        <translation>Die Einstellung „tarvctl_executable“ nennt kein Programm, das „%1“ ausführen könnte</translation>
    </message>
    <message>
        <source>%1 can&apos;t be started: %2</source>
        <translation>%1 kann nicht gestartet werden: %2</translation>
    </message>
    <message>
        <source>Operation failed with status %d</source>
        <translation>Der Vorgang ist mit Status %d fehlgeschlagen</translation>
    </message>
</context>
<context>
    <name>TarvVM</name>
    <message>
        <source>Running</source>
        <translation>Läuft</translation>
    </message>
    <message>
        <source>Stopped</source>
        <translation>Gestoppt</translation>
    </message>
    <message>
        <source>Suspended</source>
        <translation>Im Ruhezustand</translation>
    </message>
    <message>
        <source>Failed</source>
        <translation>Fehlgeschlagen</translation>
    </message>
    <message>
        <source>Malfunction</source>
        <translation>Gestört</translation>
    </message>
</context>
<context>
    <name>TarvWindow</name>
    <message>
        <source>Live Resolution will be turned on</source>
        <translation>„Auflösung folgt dem Fenster“ wird eingeschaltet</translation>
    </message>
    <message>
        <source>Upon switching to Full Screen, Live Resolution will be turned on</source>
        <translation>Mit dem Wechsel zum Vollbild wird „Auflösung folgt dem Fenster“ eingeschaltet</translation>
    </message>
    <message>
        <source>Switch</source>
        <translation>Wechseln</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
</context>
<context>
    <name>Termination</name>
    <message>
        <source>%d VM(s) are running. Do you want to quit and terminate them?</source>
        <translation>Laufende VMs: %d. Möchten Sie Tarv mitsamt diesen VMs beenden?</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Quit Tarv</source>
        <translation>Tarv beenden</translation>
    </message>
    <message>
        <source>A command that is left to itself runs on.</source>
        <translation>Ein Befehl, der sich selbst überlassen wird, läuft weiter.</translation>
    </message>
    <message>
        <source>Quit Now</source>
        <translation>Sofort beenden</translation>
    </message>
    <message>
        <source>Tarv quits when the command that is running has finished.</source>
        <translation>Tarv wird beendet, sobald der laufende Befehl fertig ist.</translation>
    </message>
    <message numerus="yes">
        <source>Tarv quits when %n commands have finished.</source>
        <translation>
            <numerusform>Tarv wird beendet, sobald %n Befehl fertig ist.</numerusform>
            <numerusform>Tarv wird beendet, sobald %n Befehle fertig sind.</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>UnreadableSheet</name>
    <message>
        <source>Unreadable VMs</source>
        <translation>Nicht lesbare VMs</translation>
    </message>
    <message>
        <source>These VMs are left out of the list. Nothing of theirs has been changed.</source>
        <translation>Diese VMs fehlen in der Liste. An ihren Dateien wurde nichts geändert.</translation>
    </message>
    <message>
        <source>VM</source>
        <translation>VM</translation>
    </message>
    <message>
        <source>Reason</source>
        <translation>Grund</translation>
    </message>
</context>
<context>
    <name>VirtualMachineDelegate</name>
    <message>
        <source>Name</source>
        <translation>Name</translation>
    </message>
</context>
<context>
    <name>VirtualMachinesController</name>
    <message>
        <source>Name</source>
        <translation>Name</translation>
    </message>
    <message>
        <source>Version</source>
        <translation>Version</translation>
    </message>
    <message>
        <source>Status</source>
        <translation>Status</translation>
    </message>
</context>
<context>
    <name>WelcomeWindowController</name>
    <message>
        <source>Virtual Machines</source>
        <translation>Virtuelle Maschinen</translation>
    </message>
    <message>
        <source>Close</source>
        <translation>Schließen</translation>
    </message>
    <message>
        <source>Virtual machines</source>
        <translation>Virtuelle Maschinen</translation>
    </message>
    <message>
        <source>&amp;New VM…</source>
        <translation>&amp;Neue VM …</translation>
    </message>
    <message>
        <source>&amp;Start</source>
        <translation>&amp;Starten</translation>
    </message>
    <message>
        <source>St&amp;op</source>
        <translation>St&amp;oppen</translation>
    </message>
    <message>
        <source>There are no virtual machines yet</source>
        <translation>Es gibt noch keine virtuellen Maschinen</translation>
    </message>
</context>
</TS>
