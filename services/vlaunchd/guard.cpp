#include "services/vlaunchd/guard.h"

#include <cerrno>

#include <sys/inotify.h>
#include <unistd.h>

bool SocketGuard::watch(sd_event *event, const std::string &path, Changes changes)
{
    m_path = path;
    m_changes = std::move(changes);
    renew();
    const size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    sd_event_source *source = nullptr;
    const int result = sd_event_add_inotify(
        event, &source, directory.c_str(), IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_CREATE,
        [](sd_event_source *, const inotify_event *, void *user) {
            auto *guard = static_cast<SocketGuard *>(user);
            // What happened is read from the directory, not from the event: several may have.
            const Place place = guard->look();
            if (place == Place::gone)
                guard->m_changes.gone();
            else if (place == Place::taken)
                guard->m_changes.taken();
            return 0;
        },
        this);
    m_source.reset(source);
    errno = result < 0 ? -result : 0;
    return result >= 0;
}

void SocketGuard::renew()
{
    if (lstat(m_path.c_str(), &m_ours) != 0)
        m_ours = {};
}

SocketGuard::Place SocketGuard::look() const
{
    struct stat there;
    if (lstat(m_path.c_str(), &there) != 0)
        return errno == ENOENT ? Place::gone : Place::ours;
    // An inode's number may be given out again at once: the time of its making tells the two apart.
    const bool same = there.st_ino == m_ours.st_ino && there.st_dev == m_ours.st_dev &&
                      there.st_mtim.tv_sec == m_ours.st_mtim.tv_sec &&
                      there.st_mtim.tv_nsec == m_ours.st_mtim.tv_nsec;
    return same ? Place::ours : Place::taken;
}

void SocketGuard::remove() const
{
    if (!m_path.empty() && look() == Place::ours)
        unlink(m_path.c_str());
}
