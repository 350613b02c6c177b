#include <clocale>

#include "Program.h"

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    // Numbers are read and written the same way in every locale.
    std::setlocale(LC_NUMERIC, "C");
    return runCommandLine(argc, argv);
}
