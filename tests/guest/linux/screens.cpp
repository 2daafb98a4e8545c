// A program of the Linux guest: fills every screen, follows the sizes that it is told, shows a
// pointer image, and prints what the input devices say. What it prints and shows is described in
// linux_guest.h.
#include "tests/guest/linux/linux_guest.h"

#include <drm.h>
#include <drm_mode.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <linux/input.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr uint32_t CONNECTED = 1;

int card = -1;
uint32_t cursor_handle = 0;
std::vector<uint32_t> crtcs, connectors;
std::vector<drm_mode_modeinfo> shown;

// A picture in memory that the card can show.
struct Picture
{
    uint32_t handle = 0, pitch = 0;
    uint32_t *pixels = nullptr;
};

uint64_t pointer(const void *address)
{
    return reinterpret_cast<uintptr_t>(address);
}

Picture make_picture(uint32_t width, uint32_t height)
{
    drm_mode_create_dumb make{};
    make.width = width;
    make.height = height;
    make.bpp = 32;
    drm_mode_map_dumb map{};
    if (ioctl(card, DRM_IOCTL_MODE_CREATE_DUMB, &make) != 0)
        return {};
    map.handle = make.handle;
    ioctl(card, DRM_IOCTL_MODE_MAP_DUMB, &map);
    void *pixels =
        mmap(nullptr, make.size, PROT_READ | PROT_WRITE, MAP_SHARED, card, off_t(map.offset));
    return {make.handle, make.pitch / 4, static_cast<uint32_t *>(pixels)};
}

void show(size_t screen, const drm_mode_modeinfo &mode)
{
    const Picture picture = make_picture(mode.hdisplay, mode.vdisplay);
    for (uint32_t y = 0; y < mode.vdisplay; y++)
        std::fill_n(picture.pixels + y * picture.pitch, mode.hdisplay, LINUX_COLOURS[screen]);
    drm_mode_fb_cmd frame{0,  mode.hdisplay, mode.vdisplay, picture.pitch * 4, 32,
                          24, picture.handle};
    ioctl(card, DRM_IOCTL_MODE_ADDFB, &frame);
    drm_mode_crtc set{};
    set.set_connectors_ptr = pointer(&connectors[screen]);
    set.count_connectors = 1;
    set.crtc_id = crtcs[screen];
    set.fb_id = frame.fb_id;
    set.mode_valid = 1;
    set.mode = mode;
    const bool done = ioctl(card, DRM_IOCTL_MODE_SETCRTC, &set) == 0;
    drm_mode_cursor2 cursor{};
    cursor.flags = DRM_MODE_CURSOR_BO;
    cursor.crtc_id = crtcs[screen];
    cursor.width = cursor.height = LINUX_CURSOR_SIZE;
    cursor.handle = cursor_handle;
    cursor.hot_x = LINUX_CURSOR_HOT_X;
    cursor.hot_y = LINUX_CURSOR_HOT_Y;
    ioctl(card, DRM_IOCTL_MODE_CURSOR2, &cursor);
    printf("guest: screen %zu %ux%u%s\n", screen, mode.hdisplay, mode.vdisplay,
           done ? "" : " refused");
}

// The preferred mode of a screen; none (0 wide) while it is unplugged.
drm_mode_modeinfo preferred(size_t screen)
{
    std::vector<drm_mode_modeinfo> modes(64);
    drm_mode_get_connector get{};
    get.connector_id = connectors[screen];
    ioctl(card, DRM_IOCTL_MODE_GETCONNECTOR, &get); // asks the card anew
    get.count_props = get.count_encoders = 0;
    get.count_modes = std::min<uint32_t>(get.count_modes, uint32_t(modes.size()));
    get.modes_ptr = pointer(modes.data());
    if (ioctl(card, DRM_IOCTL_MODE_GETCONNECTOR, &get) != 0 || get.connection != CONNECTED)
        return {};
    modes.resize(get.count_modes);
    const auto found = std::find_if(modes.begin(), modes.end(), [](const auto &mode) {
        return (mode.type & DRM_MODE_TYPE_PREFERRED) != 0;
    });
    return found == modes.end() ? drm_mode_modeinfo{} : *found;
}

void follow_sizes()
{
    for (size_t i = 0; i < connectors.size(); i++) {
        const drm_mode_modeinfo mode = preferred(i);
        if (mode.hdisplay == shown[i].hdisplay && mode.vdisplay == shown[i].vdisplay)
            continue;
        shown[i] = mode;
        if (mode.hdisplay != 0)
            show(i, mode);
        else
            printf("guest: screen %zu unplugged\n", i);
    }
}

bool open_card()
{
    card = open("/dev/dri/card0", O_RDWR);
    crtcs.resize(16);
    connectors.resize(16);
    drm_mode_card_res resources{};
    resources.crtc_id_ptr = pointer(crtcs.data());
    resources.connector_id_ptr = pointer(connectors.data());
    resources.count_crtcs = resources.count_connectors = 16;
    if (ioctl(card, DRM_IOCTL_MODE_GETRESOURCES, &resources) != 0)
        return false;
    crtcs.resize(resources.count_crtcs);
    connectors.resize(resources.count_connectors);
    shown.resize(connectors.size());
    const Picture cursor = make_picture(LINUX_CURSOR_SIZE, LINUX_CURSOR_SIZE);
    std::fill_n(cursor.pixels, LINUX_CURSOR_SIZE * LINUX_CURSOR_SIZE, LINUX_CURSOR_COLOUR);
    cursor_handle = cursor.handle;
    return true;
}

// The input devices, opened as they come.
class Inputs
{
public:
    void openNew()
    {
        for (int i = 0; i < 32; i++) {
            const std::string path = "/dev/input/event" + std::to_string(i);
            if (i < int(m_open.size()) && m_open[size_t(i)])
                continue;
            const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK);
            if (fd < 0)
                continue;
            m_open.resize(std::max(m_open.size(), size_t(i) + 1));
            m_open[size_t(i)] = true;
            polls.push_back({fd, POLLIN, 0});
            char name[80] = "";
            ioctl(fd, EVIOCGNAME(sizeof name), name);
            printf("guest: input %s\n", name);
        }
    }
    void read(int fd)
    {
        input_event event;
        while (::read(fd, &event, sizeof event) == ssize_t(sizeof event))
            take(event);
    }
    std::vector<pollfd> polls;

private:
    void take(const input_event &event)
    {
        if (event.type == EV_ABS)
            (event.code == ABS_X ? m_x : m_y) = event.value;
        m_moved |= event.type == EV_ABS;
        if (event.type == EV_KEY)
            printf("guest: key %d %d\n", event.code, event.value);
        else if (event.type == EV_REL && (event.code == REL_WHEEL || event.code == REL_HWHEEL))
            printf("guest: wheel %d %d\n", event.code, event.value);
        else if (event.type == EV_SYN && std::exchange(m_moved, false))
            printf("guest: pointer %d %d\n", m_x, m_y);
    }

    std::vector<bool> m_open;
    int m_x = 0, m_y = 0;
    bool m_moved = false;
};

} // namespace

int main()
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = 1;
    const int changes = socket(AF_NETLINK, SOCK_DGRAM, NETLINK_KOBJECT_UEVENT);
    if (bind(changes, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        !open_card()) {
        perror("guest: screens");
        return EXIT_FAILURE;
    }
    Inputs inputs;
    inputs.polls.push_back({changes, POLLIN, 0});
    for (;;) {
        follow_sizes();
        inputs.openNew();
        poll(inputs.polls.data(), inputs.polls.size(), -1);
        char text[8192];
        while (recv(changes, text, sizeof text, MSG_DONTWAIT) > 0)
            ;
        for (size_t i = 1; i < inputs.polls.size(); i++)
            inputs.read(inputs.polls[i].fd);
    }
}
