#include "app/shell/AppParts.h"
#include "app/shell/EntryPoint.h"

int main(int argc, char **argv)
{
    return tarvMain(argc, argv, applicationParts);
}
