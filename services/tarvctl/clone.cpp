#include "hostlib/vm/used_state.h"
#include "services/notify/notify.h"
#include "services/tarvctl/cancel.h"
#include "services/tarvctl/command.h"
#include "services/tarvctl/copy_file.h"
#include "services/tarvctl/disks.h"
#include "services/tarvctl/power.h"
#include "services/tarvctl/progress.h"
#include "services/tarvctl/qemu_img.h"
#include "services/tarvctl/service.h"
#include "services/tarvctl/stage.h"

#include <cerrno>

#include <unistd.h>

namespace {

// How the disks of a clone come to be.
enum class CloneKind
{
    linked, // source and clone write into layers of their own above the same images
    copy
};

// A new layer above a source's disk: the source's own half of a linked clone.
struct Layer
{
    struct kv *disk;  // of the source's configuration
    std::string rest; // of the image's name
};

class Cloning
{
public:
    Cloning(Library &library, const VmRef &source, std::string name, CloneKind kind)
        : m_library(library),
          m_source(source),
          m_name(std::move(name)),
          m_kind(kind),
          m_stage(library),
          m_theirs(library.read_config(source)),
          m_ours(library.read_config(source))
    {
    }
    // Makes and publishes it; the identifier.
    std::string run();

private:
    void clone_disks();
    void clone_disk(struct kv *theirs, struct kv *ours, size_t index);
    void copy_image(const std::string &from, const std::string &format, const std::string &to);
    void copy_state();
    void copy_files();
    void give_identity();
    void rewrite_source();

    Library &m_library;
    const VmRef &m_source;
    std::string m_name;
    CloneKind m_kind;
    Stage m_stage;
    KvOwner m_theirs, m_ours;
    std::vector<Layer> m_layers;
    Progress m_progress;
};

std::string Cloning::run()
{
    clone_disks();
    copy_state();
    copy_files();
    give_identity();
    m_progress.begin_step(1);
    check_cancelled();
    m_stage.publish(m_ours.get(), [this] { rewrite_source(); });
    m_progress.report(1);
    return m_stage.id();
}

void Cloning::clone_disks()
{
    struct kv *theirs = kv_first(kv_get(m_theirs.get(), "hard_drives"));
    struct kv *ours = kv_first(kv_get(m_ours.get(), "hard_drives"));
    const double count = static_cast<double>(kv_count(kv_get(m_theirs.get(), "hard_drives")));
    for (size_t index = 0; theirs && ours; ++index) {
        m_progress.begin_step(0.9 * static_cast<double>(index + 1) / count);
        clone_disk(theirs, ours, index);
        theirs = kv_next(theirs);
        ours = kv_next(ours);
    }
}

void Cloning::clone_disk(struct kv *theirs, struct kv *ours, size_t index)
{
    const std::string file = kv_get_str(theirs, "file", "");
    if (file.empty() || file.find("://") != std::string::npos)
        return; // no disk, or one that is not on this host: both use it as it is named
    const std::string path = image_path(file);
    if (access(path.c_str(), R_OK) != 0)
        throw system_failure(path, errno);
    const std::string rest = "disk" + std::to_string(index) + ".qcow2";
    const std::string target = m_stage.add_image(rest);
    if (m_kind == CloneKind::copy) {
        copy_image(path, image_format(theirs, path), target);
    } else {
        // Relative, as in configurations: the image library may move.
        const std::string base = is_library_image(file) ? file : path;
        const std::string layer = "source" + std::to_string(index) + ".qcow2";
        m_layers.push_back({theirs, layer});
        for (const std::string &top : {target, m_stage.add_image(layer)})
            run_qemu_img(
                {"create", "-q", "-f", "qcow2", "-b", base, "-F", image_format(theirs, path), top});
    }
    kv_set_type(ours, "file", m_stage.image_name(rest).c_str(), KV_STRING);
    kv_free(kv_detach(ours, "format"));
}

// A qcow2 image that stands alone is copied as a file; anything else becomes such an image.
void Cloning::copy_image(const std::string &from, const std::string &format, const std::string &to)
{
    auto progress = [this](double part) { m_progress.report(part); };
    if (format == "qcow2" && qcow2_backing(from).empty())
        copy_file(from, to, progress);
    else
        run_qemu_img({"convert", "-p", "-f", format, "-O", "qcow2", from, to}, progress);
}

void Cloning::copy_state()
{
    const std::string file = config_text(m_theirs.get(), "state_file");
    if (file.empty())
        return;
    // The source's guest has gone on from it: above the disks that are cloned it would destroy
    // them.
    if (vm_state_used(m_library.open(m_source).get(), file.c_str()) != 0) {
        kv_free(kv_detach(m_ours.get(), "state_file"));
        return;
    }
    m_progress.begin_step(0.97);
    copy_file(image_path(file), m_stage.add_image("state"),
              [this](double part) { m_progress.report(part); });
    kv_set_type(m_ours.get(), "state_file", m_stage.image_name("state").c_str(), KV_STRING);
}

// The firmware's variables and the version go along; each VM has its own from then on.
void Cloning::copy_files()
{
    const std::string directory = m_library.directory() + "/" + m_source.id + "/";
    for (const char *name : {vm_nvram_path(), "localversion"}) {
        const std::string path = directory + name;
        if (access(path.c_str(), F_OK) == 0)
            copy_file(path, m_stage.directory() + "/" + name, [](double) {});
    }
}

void Cloning::give_identity()
{
    kv_set_type(m_ours.get(), "name", m_name.c_str(), KV_STRING);
    kv_set_type(m_ours.get(), "uuid", m_stage.id().c_str(), KV_STRING);
    for (auto *card = kv_first(kv_get(m_ours.get(), "network")); card; card = kv_next(card))
        kv_set_type(card, "mac", random_mac().c_str(), KV_STRING);
}

// From here on the source writes above the shared images, before the clone can be started.
void Cloning::rewrite_source()
{
    if (m_layers.empty())
        return;
    for (const Layer &layer : m_layers) {
        kv_set_type(layer.disk, "file", m_stage.image_name(layer.rest).c_str(), KV_STRING);
        kv_free(kv_detach(layer.disk, "format"));
    }
    VmOwner vm = m_library.open(m_source);
    if (vm_write_config(vm.get(), m_theirs.get()) != 0)
        throw system_failure(m_source.label() + ": failed to write its configuration", errno);
    for (const Layer &layer : m_layers)
        m_stage.hand_over_image(layer.rest);
}

} // namespace

Answer run_clone(const Arguments &arguments)
{
    Library library;
    const VmRef source = library.resolve(arguments.vm);
    library.check_name_free(arguments.name);
    service_ensure();
    sweep_leftovers(library);
    UniqueFd lock = library.lock(source);
    check_not_running(source, arguments.copy ? "copy" : "clone");
    Cloning cloning(library, source, arguments.name,
                    arguments.copy ? CloneKind::copy : CloneKind::linked);
    const std::string id = cloning.run();
    notify_post("create", id.c_str());
    if (!arguments.copy)
        notify_post("change", source.id.c_str());
    return {.body = {{"id", id}, {"name", arguments.name}},
            .text = "Created " + arguments.name + " (" + id + ")\n"};
}
