#include "services/tarvctl/installers.h"

#include "hostlib/config/config.h"
#include "hostlib/utils/utils.h"
#include "services/tarvctl/cancel.h"
#include "services/tarvctl/disks.h"
#include "services/tarvctl/image_probe.h"
#include "services/tarvctl/store.h"
#include "services/tarvctl/table.h"
#include "services/tarvctl/tool.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include <strings.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
constexpr size_t FILES_MAX = 4096; // looked at in one folder
// For naming systems: one disc, and all of them. What is not named in time has its label.
constexpr std::chrono::milliseconds DISC_PATIENCE(3000);
constexpr std::chrono::milliseconds DISCS_PATIENCE(10'000);

bool is_image_name(const std::string &name)
{
    static constexpr std::array<const char *, 3> extensions = {".iso", ".img", ".qcow2"};
    const std::string extension = fs::path(name).extension();
    return name.front() != '.' &&
           std::any_of(extensions.begin(), extensions.end(), [&](const char *known) {
               return strcasecmp(extension.c_str(), known) == 0;
           });
}

// The user's download folder: as the desktop has it configured, else "Downloads".
std::string download_folder()
{
    const std::string home = home_dir();
    const char *base = getenv("XDG_CONFIG_HOME");
    std::ifstream file((base && *base ? std::string(base) : home + "/.config") + "/user-dirs.dirs");
    constexpr std::string_view key = "XDG_DOWNLOAD_DIR=\"";
    std::string line;
    for (int count = 0; count < 100 && std::getline(file, line); ++count) {
        if (!line.starts_with(key))
            continue;
        std::string path = line.substr(key.size(), line.find('"', key.size()) - key.size());
        constexpr std::string_view variable = "$HOME";
        return path.starts_with(variable) ? home + path.substr(variable.size()) : path;
    }
    return home + "/Downloads";
}

// What libosinfo calls the system on a disc, as "Debian 11 (x86_64)"; "" when it does not know it.
std::string system_on(const std::string &path, Clock::time_point deadline)
try {
    constexpr const char *program = "/usr/bin/osinfo-detect";
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0 || access(program, X_OK) != 0)
        return "";
    // It is known to wait for ever on a damaged disc.
    const ToolRun run = run_tool(program, {path}, std::min(left, DISC_PATIENCE));
    const size_t start = run.out.find("OS '"), end = run.out.rfind('\'');
    return run.status == 0 && start != std::string::npos && end > start + 4
               ? run.out.substr(start + 4, end - start - 4)
               : "";
} catch (const Failure &) {
    check_cancelled();
    return "";
}

// The first run of digits and dots of a text, as "12.5.0" of "debian-12.5.0-amd64".
std::string version_in(const std::string &text)
{
    const size_t start = text.find_first_of("0123456789");
    if (start == std::string::npos)
        return "";
    std::string version = text.substr(start, text.find_first_not_of("0123456789.", start) - start);
    version.erase(version.find_last_not_of('.') + 1);
    return version;
}

std::string file_url(const std::string &path)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string url = "file://";
    for (const char byte : path) {
        const auto value = static_cast<unsigned char>(byte);
        if (isalnum(value) || std::string_view("/.-_~+").find(byte) != std::string_view::npos)
            url += byte;
        else
            url += {'%', digits[value >> 4], digits[value & 15]};
    }
    return url;
}

// The form tells images apart by their build alone: those that have the same are told by the file.
void make_builds_unique(std::vector<Installer> &found)
{
    std::map<std::string, int> counts;
    for (const Installer &installer : found)
        ++counts[installer.build];
    for (Installer &installer : found)
        if (counts[installer.build] > 1)
            installer.build += ", " + fs::path(installer.path).filename().string();
}

// The images of VMs, and what the controller is making, are no installers.
std::set<std::string> images_in_use()
try {
    Library library;
    std::set<std::string> used;
    library.each_config([&](const struct kv *record) { used.merge(library_images(record)); });
    return used;
} catch (const Failure &) {
    return {};
}

// A disc's label tells more than what somebody named the file, and libosinfo more than the label,
// except for the smaller numbers of a version.
Installer describe(const ImageInfo &image, const std::string &name, Clock::time_point deadline)
{
    Installer installer{version_in(image.label), image.label, file_url(image.path), image.path,
                        image.modified};
    if (installer.version.empty())
        installer.version = version_in(name);
    // What tools that make discs call them when nobody does.
    const bool is_named = installer.build != "ISOIMAGE" && installer.build != "CDROM";
    if (installer.build.empty() || !is_named)
        installer.build = name;
    const std::string system = image.kind == ImageKind::disc ? system_on(image.path, deadline) : "";
    if (system.empty())
        return installer;
    installer.build = system;
    const std::string version = version_in(system);
    if (!version.empty() && !installer.version.starts_with(version))
        installer.version = version;
    return installer;
}

void add_folder(const std::string &folder, const std::set<std::string> &left_out,
                Clock::time_point deadline, std::vector<Installer> &found)
{
    std::error_code error;
    size_t count = 0;
    for (fs::directory_iterator entry(folder, error), end;
         !error && entry != end && count++ < FILES_MAX; entry.increment(error)) {
        const std::string name = entry->path().filename();
        if (!is_image_name(name) || left_out.contains(name) || is_own_image_name(name))
            continue;
        try {
            found.push_back(describe(probe_image(entry->path()), name, deadline));
        } catch (const Failure &) {
            continue; // what can't be read can't be offered
        }
    }
}

} // namespace

std::vector<Installer> find_installers()
{
    std::vector<Installer> found;
    const auto deadline = Clock::now() + DISCS_PATIENCE;
    const char *library = config_find("img_lib_dir") ? config_get_path("img_lib_dir") : nullptr;
    if (library)
        add_folder(fs::absolute(library), images_in_use(), deadline, found);
    if (const std::string downloads = download_folder(); !library || downloads != library)
        add_folder(downloads, {}, deadline, found);
    make_builds_unique(found);
    std::sort(found.begin(), found.end(), [](const Installer &a, const Installer &b) {
        const int order = vercmp(a.version.c_str(), b.version.c_str());
        return order != 0 ? order > 0 : a.modified > b.modified;
    });
    return found;
}

Answer list_installers()
{
    Answer answer{.body = Json::array()};
    Table table({"VERSION", "BUILD", "IMAGE"});
    for (const Installer &installer : find_installers()) {
        answer.body.push_back(
            {{"version", installer.version}, {"build", installer.build}, {"url", installer.url}});
        table.add_row({installer.version, installer.build, installer.path});
    }
    answer.text = table.text();
    return answer;
}

std::string latest_installer()
{
    const std::vector<Installer> found = find_installers();
    if (found.empty())
        throw Failure(ExitStatus::input,
                      "IMAGE: latest: no image is in the image library or in " + download_folder());
    return found.front().path;
}
