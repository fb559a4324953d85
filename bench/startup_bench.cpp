// startup_bench.cpp: the cost of loading the library, measured against the same program without it.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
    // Runs a program and returns the kilobytes of memory that belong to its process alone, as the program prints them.
    // Returns 0 if the program does not start.
    double MeasureKilobytes(char const * szProgram)
    {
        double fTotal = 0;
        if (std::FILE * const pOutput = ::popen(("'" + std::string(szProgram) + "'").c_str(), "r"))
        {
            long nKilobytes;
            char szName[64];
            while (std::fscanf(pOutput, "%63[^:]: %ld kB ", szName, &nKilobytes) == 2)
            {
                fTotal += static_cast<double>(nKilobytes);
            }
            ::pclose(pOutput);
        }
        return fTotal;
    }

    void Run(benchmark::State & State, char const * szProgram)
    {
        char szArgument[] = "idle";
        char * dArguments[] = { szArgument, nullptr };
        posix_spawn_file_actions_t Actions;
        ::posix_spawn_file_actions_init(&Actions);
        ::posix_spawn_file_actions_addopen(&Actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        for (auto _ : State)
        {
            pid_t iChild;
            if (::posix_spawn(&iChild, szProgram, &Actions, nullptr, dArguments, environ) != 0
                || ::waitpid(iChild, nullptr, 0) < 0)
            {
                State.SkipWithError("the program does not start");
                break;
            }
        }
        ::posix_spawn_file_actions_destroy(&Actions);
        State.counters["private_kB"] = MeasureKilobytes(szProgram);
    }
    BENCHMARK_CAPTURE(Run, ours, STARTUP_WITH_LIBRARY)->Name("Startup/ours")->UseRealTime();
    BENCHMARK_CAPTURE(Run, empty, STARTUP_WITHOUT_LIBRARY)->Name("Startup/empty_program")->UseRealTime();
}
