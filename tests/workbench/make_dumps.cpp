// Writes the dumps of kernels that stdin holds as text (see support::kernels_of), for the cases in cli/cases:
// make_dumps DIRECTORY

#include "tests/support/dumps.hpp"

#include <exception>
#include <iostream>
#include <iterator>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: make_dumps DIRECTORY <TEXT\n";
        return 2;
    }
    try {
        const std::string text(std::istreambuf_iterator<char>(std::cin), {});
        support::write_dumps(argv[1], support::kernels_of(text));
    } catch (const std::exception& error) {
        std::cerr << "make_dumps: " << error.what() << "\n";
        return 2;
    }
    return 0;
}
