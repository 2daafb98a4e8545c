#include "hostlib/utils/proc.h"

#include "hostlib/utils/proc_pump.h"

#include "platform/new_file.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <string_view>
#include <unistd.h>

namespace {

constexpr size_t CHUNK_SIZE = 64 * 1024;
// A line beyond this comes in pieces.
constexpr size_t LINE_CAP = size_t(256) << 20;

ssize_t read_some(int fd, char *buffer, size_t size)
{
    ssize_t count;
    while ((count = read(fd, buffer, size)) < 0 && errno == EINTR)
        ;
    return count;
}

// Passes a little of a tool's standard error on to this process's own. The count read.
ssize_t pass_on(int fd)
{
    char buffer[128];
    const ssize_t count = read_some(fd, buffer, sizeof buffer);
    // Where nobody takes it, it is read all the same: the tool must not wait for us.
    if (count > 0)
        platform_write_all(STDERR_FILENO, {buffer, size_t(count)});
    return count;
}

// Waits until `fd` can be read. Standard error is passed on meanwhile: a tool that has filled that
// pipe writes no more lines, and would wait for us as we wait for it.
void wait_for_output(int fd, int &stderr_fd)
{
    while (stderr_fd >= 0) {
        struct pollfd streams[] = {{fd, POLLIN, 0}, {stderr_fd, POLLIN, 0}};
        if (poll(streams, 2, -1) < 0 && errno != EINTR)
            return;
        if (streams[1].revents != 0 && pass_on(stderr_fd) <= 0)
            stderr_fd = -1;
        if (streams[0].revents != 0)
            return;
    }
}

// Cuts a stream into lines.
class LineCutter
{
public:
    explicit LineCutter(const proc_line_ctx &context) : m_context(context) {}

    void take(std::string_view text)
    {
        for (size_t end; (end = text.find('\n')) != std::string_view::npos;) {
            emit(text.substr(0, end + 1));
            text.remove_prefix(end + 1);
        }
        m_rest.append(text);
        if (m_rest.size() >= LINE_CAP)
            finish();
    }
    void finish()
    {
        if (!m_rest.empty())
            emit({});
    }
    size_t total() const { return m_total; }

private:
    // One line: what is left of earlier reads, then `end`.
    void emit(std::string_view end)
    {
        if (!m_rest.empty())
            end = m_rest.append(end);
        m_total += end.size();
        if (m_context.fn != nullptr)
            m_context.fn(m_context.arg, end.data(), end.size());
        else
            (*static_cast<const proc_line_closure *>(m_context.arg))(end.data(), end.size());
        m_rest.clear();
    }

    const proc_line_ctx &m_context;
    std::string m_rest;
    size_t m_total = 0;
};

// Reads lines until the tool closes its output. Their summed length.
ssize_t read_lines(proc_line_ctx &context, int stderr_fd)
{
    const int fd = fileno(context.fp);
    std::string chunk(CHUNK_SIZE, '\0');
    LineCutter cutter(context);
    for (;;) {
        wait_for_output(fd, stderr_fd);
        const ssize_t count = read_some(fd, chunk.data(), chunk.size());
        if (count <= 0)
            break;
        cutter.take({chunk.data(), size_t(count)});
    }
    cutter.finish();
    return ssize_t(cutter.total());
}

// Closes the reader of a run of a line wrapper.
struct LineContext : proc_line_ctx
{
    LineContext(proc_line_fn function, void *argument) : proc_line_ctx{function, argument, nullptr}
    {
    }
    LineContext(const LineContext &) = delete;
    LineContext &operator=(const LineContext &) = delete;
    ~LineContext()
    {
        if (fp != nullptr)
            std::fclose(fp);
    }
};

} // namespace

ssize_t proc_getout_cb(void *context, int stdout_fd, int stderr_fd)
{
    if (stdout_fd == -1)
        return pass_on(stderr_fd);
    proc_line_ctx &lines = *static_cast<proc_line_ctx *>(context);
    if (lines.fp == nullptr) {
        UniqueFd copy(fcntl(stdout_fd, F_DUPFD_CLOEXEC, 0));
        lines.fp = copy ? fdopen(copy.get(), "rb") : nullptr;
        if (lines.fp == nullptr)
            return -1;
        copy.release();
    }
    return read_lines(lines, proc_pump_stderr(context));
}

int proc_getln(const char *tool, proc_line_fn fn, void *arg, uint32_t flags, ...)
{
    LineContext context(fn, arg);
    va_list arguments;
    va_start(arguments, flags);
    const int status = proc_fexecv(tool, AT_FDCWD, proc_getout_cb, &context, flags, arguments);
    va_end(arguments);
    return status;
}

int proc_getfln(const char *tool, int dirfd, proc_line_fn fn, void *arg, uint32_t flags, ...)
{
    LineContext context(fn, arg);
    va_list arguments;
    va_start(arguments, flags);
    const int status = proc_fexecv(tool, dirfd, proc_getout_cb, &context, flags, arguments);
    va_end(arguments);
    return status;
}

int proc_getln_b(const char *tool, const proc_line_closure &closure, uint32_t flags, ...)
{
    LineContext context(nullptr, const_cast<proc_line_closure *>(&closure));
    va_list arguments;
    va_start(arguments, flags);
    const int status = proc_fexecv(tool, AT_FDCWD, proc_getout_cb, &context, flags, arguments);
    va_end(arguments);
    return status;
}
