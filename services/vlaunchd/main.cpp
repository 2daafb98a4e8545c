#include "services/vlaunchd/service.h"

int main(int argc, char **argv)
{
    return vlaunchd_main(argc, argv);
}
