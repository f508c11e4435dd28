// The program that LoadBench runs, linked with the library or without it. With an argument it prints the size
// of its private dirty memory in kB: pages that are only read are shared with other processes.

#include <fstream>
#include <iostream>
#include <string>

int main(int argc, char**)
{
    if (argc == 1) {
        return 0;
    }
    std::ifstream file("/proc/self/smaps_rollup");
    std::string word;
    long kilobytes = 0;
    while (file >> word && word != "Private_Dirty:") {
    }
    file >> kilobytes;
    std::cout << kilobytes << '\n';
    return 0;
}
