#include "app/shell/AppParts.h"

#include "app/agreement/EULAWindowController.h"
#include "app/display/TarvWindowController.h"
#include "app/kit/BackgroundWork.h"
#include "app/list/WelcomeWindowController.h"
#include "app/model/TarvCTL.h"
#include "app/model/TarvVM.h"
#include "hostlib/config/config.h"
#include "hostlib/vm/owners.h"
#include "tarvhv/tarvhv.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QFile>

namespace {

// Ahead of every refresh of the list.
constexpr int START_PRIORITY = 10;
constexpr int STATE_PRIORITY = 20;

void removeState(const QString &id)
{
    const VmlibOwner library(vmlib_open(nullptr));
    if (!library)
        return;
    const VmOwner record(vmlib_get(library.get(), id.toUtf8().constData(), nullptr));
    if (record)
        vm_remove_state(record.get());
}

// The identifier as the library spells it. One that comes in other letters from outside is the same
// VM, which must not be started a second time under another name.
QString spelledByLibrary(const QString &id)
{
    const VmlibOwner library(vmlib_open(nullptr));
    while (const char *each = library ? vmlib_next(library.get()) : nullptr)
        if (QString known = QFile::decodeName(each); known.compare(id, Qt::CaseInsensitive) == 0)
            return known;
    return id;
}

// Reads the library first: not on the main thread.
void startVM(const QString &id, int options)
{
    const auto find = [id, options]() -> BackgroundWork::Continuation {
        return [known = spelledByLibrary(id), options] { TarvVM(known).start(options); };
    };
    BackgroundWork::shared().run(BackgroundWork::Lane::records, find, START_PRIORITY);
}

} // namespace

AppParts applicationParts()
{
    AppParts parts;
    parts.isEulaAccepted = TarvCTL::isEulaAccepted;
    parts.makeEulaController = [] { return new EULAWindowController; };
    parts.makeWelcomeController = [] { return WelcomeWindowController::controller(); };
    parts.makeDisplayController = [](std::unique_ptr<TarvDisplay> display) {
        return new TarvWindowController(std::move(display));
    };
    parts.createDisplay = TarvDisplayCreateAsync;
    parts.hostType = config_get_platform;
    parts.runningVMs = TarvHVGetNumberOfVMsRunning;
    parts.endVMs = tarvhv_end_vms;
    // The record may be locked by another program: not for the main thread.
    parts.removeState = [](const QString &id) {
        const auto remove = [id] {
            removeState(id);
            return BackgroundWork::Continuation();
        };
        BackgroundWork::shared().run(BackgroundWork::Lane::records, remove, STATE_PRIORITY);
    };
    parts.startVM = startVM;
    parts.setVMStatus = TarvVM::setVM;
    parts.setAddonsImage = [](const QString &path) {
        config_set_path("addons_image", path.toLocal8Bit().constData());
    };
    parts.openInBrowser = [](const QUrl &url) { return QDesktopServices::openUrl(url); };
    parts.exit = [] { QCoreApplication::exit(0); };
    return parts;
}
