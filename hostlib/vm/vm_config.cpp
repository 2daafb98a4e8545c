#include "hostlib/vm/vm.h"

#include "hostlib/utils/utils.h"
#include "hostlib/vm/img.h"
#include "hostlib/vm/keep_comments.h"
#include "hostlib/vm/owners.h"
#include "hostlib/vm/rewrite.h"
#include "platform/unique_fd.h"
#include "policy/owners.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <unistd.h>

namespace {

constexpr const char *STATE_KEY = "state_file";
constexpr const char *STATE_NAME = "state.yaml";
// A longer configuration is no configuration to its reader either.
constexpr size_t TEXT_MAX = size_t(4) << 20;

KvOwner load_yaml(FILE *stream)
{
    KvOwner tree(kv_new_type(KV_MAP));
    if (tree && kv_load_yaml(tree.get(), stream) != 0)
        tree.reset();
    return tree;
}

// Goes through a temporary file: a tree that can't be written must not cost the old text.
int serialize(const struct kv *config, std::string *text)
{
    const FileOwner temporary(tmpfile());
    if (!temporary || kv_save_yaml(config, temporary.get()) != 0 || fflush(temporary.get()) != 0)
        return -1;
    rewind(temporary.get());
    char chunk[1024];
    while (const size_t length = fread(chunk, 1, sizeof chunk, temporary.get()))
        text->append(chunk, length);
    return ferror(temporary.get()) ? -1 : 0;
}

// What a text holds, written anew; "" when it is no configuration.
std::string written_anew(const std::string &text)
{
    std::string result, copy = text; // which stays as it is: the stream is for reading
    const FileOwner stream(copy.empty() ? nullptr : fmemopen(copy.data(), copy.size(), "r"));
    const KvOwner config(stream ? load_yaml(stream.get()) : nullptr);
    return config && serialize(config.get(), &result) == 0 ? result : "";
}

// A text of the writer without the comments above its first key, which have no meaning.
std::string_view below_header(std::string_view text)
{
    while (text.starts_with('#') || text.starts_with('\n'))
        text.remove_prefix(std::min(text.find('\n'), text.size() - 1) + 1);
    return text;
}

std::string read_text(struct vm *vm, const char *name)
{
    std::string text;
    const FileOwner stream = vm_open_locked(vm->dirfd, name);
    char chunk[4096];
    while (const size_t length = stream ? fread(chunk, 1, sizeof chunk, stream.get()) : 0)
        if (text.append(chunk, length).size() > TEXT_MAX)
            return "";
    return text;
}

// People write comments into configurations: those of the file stay, and so do its lines where the
// configuration did not change. Of a file that is new, or no configuration, nothing is kept.
std::string with_comments(struct vm *vm, const char *name, const std::string &after)
{
    const int saved = errno;
    const std::string file = read_text(vm, name), before = written_anew(file);
    errno = saved;
    if (before.empty())
        return after;
    std::string kept = keep_comments({file, before, after}, [&](const std::string &text) {
        return below_header(written_anew(text)) == below_header(after);
    });
    errno = saved;
    return kept;
}

int write_failed(const char *what, const char *name)
{
    const int error = errno;
    if (name)
        dprintf(log_fd, "vm: %s: failed to %s: %s\r\n", name, what, strerror(error));
    else
        dprintf(log_fd, "vm: failed to %s configuration: %s\r\n", what, strerror(error));
    errno = error;
    return -1;
}

void remove_image(const struct kv *node)
{
    if (const char *image = kv_str(node, nullptr))
        img_unlink(image);
}

// The older place of the suspended state.
void remove_state_file(int dirfd)
{
    UniqueFd fd(openat(dirfd, STATE_NAME, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!fd)
        return;
    if (const FileOwner stream{fdopen(fd.get(), "rb")}) {
        fd.release();
        const KvOwner state = load_yaml(stream.get());
        remove_image(kv_get(state.get(), STATE_KEY));
    }
    unlinkat(dirfd, STATE_NAME, 0);
}

} // namespace

struct kv *vm_read_config(struct vm *vm)
{
    if (!vm) {
        errno = ENOENT;
        return nullptr;
    }
    const char *name = vm_config_path(vm);
    const FileOwner stream = name ? vm_open_locked(vm->dirfd, name) : nullptr;
    return stream ? load_yaml(stream.get()).release() : nullptr;
}

int vm_write_config(struct vm *vm, const struct kv *config)
{
    std::string text;
    if (serialize(config, &text) != 0)
        return write_failed("serialize", nullptr);
    const char *name = vm_config_path(vm);
    if (!name)
        return -1;
    switch (vm_rewrite(vm->dirfd, name, with_comments(vm, name, text))) {
    case Rewrite::unopened:
        return write_failed("open", name);
    case Rewrite::unwritten:
        return write_failed("write", name);
    case Rewrite::unsynced:
        return write_failed("sync", name);
    case Rewrite::done:
        break;
    }
    return 0;
}

struct kv *vm_read_state(struct vm *vm)
{
    const KvOwner config(vm_read_config(vm));
    KvOwner image(kv_detach(config.get(), STATE_KEY));
    KvOwner state(image ? kv_new_type(KV_MAP) : nullptr);
    if (state)
        kv_set(state.get(), STATE_KEY, image.release());
    return state.release();
}

int vm_write_state(struct vm *vm, const char *image)
{
    const KvOwner config(vm_read_config(vm));
    if (!config || kv_set_type(config.get(), STATE_KEY, image, KV_CONST) != 0)
        return -1;
    return vm_write_config(vm, config.get());
}

int vm_remove_state(struct vm *vm)
{
    if (!vm)
        return 0;
    remove_state_file(vm->dirfd);
    const KvOwner config(vm_read_config(vm));
    if (const KvOwner image{kv_detach(config.get(), STATE_KEY)}) {
        vm_write_config(vm, config.get());
        remove_image(image.get());
    }
    return 0;
}
