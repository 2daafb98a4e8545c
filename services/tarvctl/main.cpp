#include "services/tarvctl/controller.h"

int main(int argc, char **argv)
{
    return tarvctl_main(argc, argv);
}
