// log_bench.cpp: a flushed log line, compared with the bare write of the same bytes, with stdio and with spdlog.
#include "zqcore/clog.h"

#include <benchmark/benchmark.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace
{
    // Format of a line, its frame, and the bytes of such a line with a time, the frame and the line end.
    constexpr char FORMAT[] = "File opened: %s, %i bytes, category %s, after %i reads, from the media tree";
    constexpr int FRAME = 12;
    constexpr std::size_t LINE_BYTES = 91;

    // A folder for temporary files, until the object is destroyed.
    struct Folder_s
    {
        std::string sPath;

        Folder_s()
        {
            char szTemplate[] = "/tmp/zqcore_log_benchXXXXXX";
            sPath = std::string(::mkdtemp(szTemplate)) + "/";
        }
        ~Folder_s() { std::filesystem::remove_all(sPath); }
    };

    void OurLine(benchmark::State & State)
    {
        Folder_s const Folder;
        LogSetFile(std::filesystem::path(Folder.sPath).wstring().c_str(), L"message.log");
        LogInit();
        g_iLogFrameCounter = FRAME;
        for (auto _ : State)
        {
            Log(FORMAT, "u.txt", 4711, "f", 3);
        }
        std::fflush(g_pMessageLogFile);
        State.counters["bytes"] =
            static_cast<double>(std::ftell(g_pMessageLogFile)) / static_cast<double>(State.iterations());
        LogDone();
    }
    BENCHMARK(OurLine)->Name("LogLine/ours");

    void BareWrite(benchmark::State & State)
    {
        Folder_s const Folder;
        int const iFile = ::open((Folder.sPath + "bare").c_str(), O_CREAT | O_WRONLY, 0644);
        std::string const sLine(LINE_BYTES, 'x');
        for (auto _ : State)
        {
            benchmark::DoNotOptimize(::write(iFile, sLine.data(), sLine.size()));
        }
        ::close(iFile);
    }
    BENCHMARK(BareWrite)->Name("LogLine/bare_write");

    void Fprintf(benchmark::State & State)
    {
        Folder_s const Folder;
        std::FILE * const pFile = std::fopen((Folder.sPath + "stdio").c_str(), "wb");
        for (auto _ : State)
        {
            std::fprintf(pFile, "%8.3f\t%i\t", 12.345, FRAME);
            std::fprintf(pFile, FORMAT, "u.txt", 4711, "f", 3);
            std::fputc('\n', pFile);
            std::fflush(pFile);
        }
        std::fclose(pFile);
    }
    BENCHMARK(Fprintf)->Name("LogLine/fprintf_fflush");

    void Spdlog(benchmark::State & State)
    {
        Folder_s const Folder;
        auto const pLogger = spdlog::basic_logger_mt("bench", Folder.sPath + "spdlog");
        pLogger->set_pattern("%E %v");
        pLogger->flush_on(spdlog::level::info);
        for (auto _ : State)
        {
            pLogger->info(
                "File opened: {}, {} bytes, category {}, after {} reads, from the media tree", "u.txt", 4711, "f", 3);
        }
        spdlog::drop("bench");
    }
    BENCHMARK(Spdlog)->Name("LogLine/spdlog_flush");
}
