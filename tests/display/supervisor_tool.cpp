// Plays a supervisor as a process: `--mode M ID`. Mode 0 runs until the VM's socket file is gone,
// and a minute at most; mode 1 ends at once, mode 2 with an error, any other use with another.
#include <cstring>
#include <string>
#include <unistd.h>

int main(int argc, char **argv)
{
    if (argc != 4 || std::strcmp(argv[1], "--mode") != 0)
        return 64;
    const std::string socket =
        std::string("/tmp/com.quelda.tarvhv.") + argv[3] + "." + std::to_string(getuid()) + ".sock";
    if (std::strcmp(argv[2], "0") == 0)
        for (int i = 0; i < 3000 && access(socket.c_str(), F_OK) == 0; i++)
            usleep(20000);
    return std::strcmp(argv[2], "2") == 0 ? 3 : 0;
}
