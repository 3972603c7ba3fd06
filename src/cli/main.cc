// vornctl: the operator's command line of the VORN ring manager.

#include <iostream>

#include "cli/commands.h"

int main(int argc, char** argv) {
    return vorn::cli::vornctlMain(argc, argv, std::cin, std::cout, std::cerr);
}
