// bench_support.h: what several benchmark programs share.
#pragma once

#include "zqcore/cfilepath.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

/// The heap without this library's tracking, which peers would not have.
template <typename T>
struct PlainHeap_T
{
    using value_type = T;

    PlainHeap_T() = default;
    template <typename OTHER>
    PlainHeap_T(PlainHeap_T<OTHER> const &)
    {}
    T * allocate(std::size_t nElements) { return static_cast<T *>(std::malloc(nElements * sizeof(T))); }
    void deallocate(T * pElements, std::size_t) { std::free(pElements); }
    bool operator==(PlainHeap_T const &) const { return true; }
};

/// A string and a vector on that heap.
using PlainString_t = std::basic_string<char, std::char_traits<char>, PlainHeap_T<char>>;
template <typename T>
using PlainVector_T = std::vector<T, PlainHeap_T<T>>;

/// Registers a text as a file that stays resident until the end of the process, so that opening it costs no disk
/// access. Returns the name to open it by. Aborts if the file can't be registered or opened.
inline std::string ServeFile(std::string const & sName, std::string const & sText)
{
    struct Served_s
    {
        std::vector<File_c *> dFiles;

        ~Served_s()
        {
            for (File_c * const pFile : dFiles)
            {
                FileClose(pFile);
            }
            FileReset();
        }
    };
    static Served_s s_Served;

    std::filesystem::path const Path =
        std::filesystem::temp_directory_path() / ("zqcore_" + std::to_string(std::rand()) + "_" + sName);
    std::ofstream(Path, std::ios::binary) << sText;
    File_c * const pFile = FileAddOneFile(Path.c_str()) ? FileOpen(Path.filename().c_str()) : nullptr;
    if (!pFile)
    {
        std::abort();
    }
    s_Served.dFiles.push_back(pFile);
    std::filesystem::remove(Path);
    return Path.filename().string();
}

/// Sizes in bytes of the two blobs, files that benchmarks read whole.
inline constexpr std::int64_t SMALL_BLOB = 16 << 10;
inline constexpr std::int64_t LARGE_BLOB = 1 << 20;

/// Returns the name of the blob of that size.
inline std::string BlobName(std::int64_t nBytes)
{
    return "blob" + std::to_string(nBytes) + ".bin";
}

/// Writes both blobs to a folder.
inline void WriteBlobs(std::filesystem::path const & Folder)
{
    for (std::int64_t const nBytes : { SMALL_BLOB, LARGE_BLOB })
    {
        std::string const sContents(static_cast<std::size_t>(nBytes), 'x');
        std::ofstream(Folder / BlobName(nBytes), std::ios::binary) << sContents;
    }
}

/// Calls fnAsk with one name in each iteration, in turn. Requires a name. Fails the benchmark if a call returns false.
template <typename ASK>
void AskInTurn(benchmark::State & State, std::vector<std::string> const & dNames, ASK fnAsk)
{
    std::size_t i = 0;
    for (auto _ : State)
    {
        if (!fnAsk(dNames[i].c_str()))
        {
            State.SkipWithError("not found or not read");
        }
        i = i + 1 < dNames.size() ? i + 1 : 0;
    }
}

/// Fails a benchmark if bCondition is false: its work has the wrong result.
inline void Require(benchmark::State & State, bool bCondition)
{
    if (!bCondition)
    {
        State.SkipWithError("wrong outcome");
    }
}
