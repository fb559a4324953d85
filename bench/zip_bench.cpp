// zip_bench.cpp: files of one zip archive through zqcore::zip and PhysicsFS.
//
// The archive has 2,000 files of 16 KiB of text, every second one stored. All reads come from the page cache.
#include "bench/bench_support.h"
#include "zqcore/czip.h"

#include <memory>
#include <physfs.h>
#include <random>
#include <unistd.h>
#include <zip.h>

namespace fs = std::filesystem;

namespace
{
    constexpr int FILES = 2000;
    constexpr std::size_t BYTES = 16 << 10;

    // Archive in the system's temporary folder. The destructor removes it.
    class Archive_c
    {
    public:
        Archive_c()
        {
            m_Path = fs::temp_directory_path() / ("zqcore_bench_" + std::to_string(getpid()) + ".zip");
            zip_t * const pZip = zip_open(m_Path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, nullptr);
            std::string const sText = Text();
            for (int i = 0; i < FILES; ++i)
            {
                zip_source_t * const pSource = zip_source_buffer(pZip, sText.data() + i, BYTES, 0);
                zip_int64_t const iEntry = zip_file_add(pZip, Name(i).c_str(), pSource, ZIP_FL_ENC_UTF_8);
                zip_set_file_compression(
                    pZip, static_cast<zip_uint64_t>(iEntry), i % 2 ? ZIP_CM_DEFLATE : ZIP_CM_STORE, 0);
            }
            zip_close(pZip);
            FileZipMount(m_Path.c_str(), ZipOrder_e::Over);
            PHYSFS_init("zip_bench");
            PHYSFS_mount(m_Path.c_str(), nullptr, 1);
        }

        ~Archive_c()
        {
            FileReset();
            PHYSFS_deinit();
            fs::remove(m_Path);
        }

        static std::string Name(int i) { return "media/file" + std::to_string(i) + ".txt"; }

    private:
        // Returns rows of a table, which deflate to about a third.
        static std::string Text()
        {
            std::mt19937 Random(1);
            std::string sText;
            while (sText.size() < BYTES + FILES)
            {
                sText += "ship;" + std::to_string(Random() % 1000) + ";harbour;" + std::to_string(Random()) + "\n";
            }
            return sText;
        }

        fs::path m_Path;
    };

    // Returns the names of every second file, from iFirst on. The first call makes the archive.
    std::vector<std::string> Names(int iFirst)
    {
        static Archive_c const s_Archive;
        std::vector<std::string> dNames;
        for (int i = iFirst; i < FILES; i += 2)
        {
            dNames.push_back(Archive_c::Name(i));
        }
        return dNames;
    }

    // Works on the stored files if iFirst is 0, or else on the deflated ones, in turn.
    template <typename WORK>
    void WorkInTurn(benchmark::State & State, int iFirst, WORK fnWork)
    {
        AskInTurn(State, Names(iFirst), fnWork);
    }

    void ExistsOurs(benchmark::State & State)
    {
        WorkInTurn(State, 0, [](char const * szName) { return FileExists(szName); });
    }
    void ExistsPhysfs(benchmark::State & State)
    {
        WorkInTurn(State, 0, [](char const * szName) { return PHYSFS_exists(szName) != 0; });
    }

    void ReadOurs(benchmark::State & State, int iFirst)
    {
        WorkInTurn(State, iFirst,
            [](char const * szName)
            {
                File_c * const pFile = FileOpen(szName);
                benchmark::DoNotOptimize(pFile);
                FileClose(pFile);
                return pFile && pFile->iLength == BYTES;
            });
    }
    void ReadPhysfs(benchmark::State & State, int iFirst)
    {
        WorkInTurn(State, iFirst,
            [](char const * szName)
            {
                PHYSFS_File * const pFile = PHYSFS_openRead(szName);
                auto const nBytes = static_cast<std::size_t>(PHYSFS_fileLength(pFile));
                std::unique_ptr<char[]> const pData(new char[nBytes]);
                auto const nRead = static_cast<std::size_t>(PHYSFS_readBytes(pFile, pData.get(), nBytes));
                benchmark::DoNotOptimize(pData.get());
                PHYSFS_close(pFile);
                return nRead == BYTES;
            });
    }

    BENCHMARK(ExistsOurs)->Name("ZipExists/ours");
    BENCHMARK(ExistsPhysfs)->Name("ZipExists/physfs");
    BENCHMARK_CAPTURE(ReadOurs, stored, 0)->Name("ZipReadStored/ours");
    BENCHMARK_CAPTURE(ReadPhysfs, stored, 0)->Name("ZipReadStored/physfs");
    BENCHMARK_CAPTURE(ReadOurs, deflated, 1)->Name("ZipReadDeflated/ours");
    BENCHMARK_CAPTURE(ReadPhysfs, deflated, 1)->Name("ZipReadDeflated/physfs");
}
