// idle.cpp: a program that starts and ends.
// The cost of loading is the difference between its builds with and without the library.
#include <cstdio>
#include <cstring>

int main()
{
    // MeasureKilobytes (startup_bench.cpp) reads the private memory of this process from the output.
    if (std::FILE * const pStatus = std::fopen("/proc/self/smaps_rollup", "r"))
    {
        char szLine[256];
        while (std::fgets(szLine, sizeof szLine, pStatus))
        {
            if (std::strncmp(szLine, "Private_", 8) == 0)
            {
                std::fputs(szLine, stdout);
            }
        }
        std::fclose(pStatus);
    }
    return 0;
}
