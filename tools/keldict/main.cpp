#include "commandline.h"

int main(int argc, char** argv)
{
    return Keldict::run(argc, argv);
}
