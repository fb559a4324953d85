// hash_bench.cpp: CRC-32 compared with libdeflate and zlib, SHA-1 compared with OpenSSL, over the same bytes.
#include "zqcore/ccrc.h"
#include "zqcore/csha1.h"

#include <benchmark/benchmark.h>
#include <libdeflate.h>
#include <openssl/sha.h>
#include <zlib.h>

#include <initializer_list>
#include <random>
#include <span>
#include <string>
#include <vector>

namespace
{
    constexpr std::size_t MAX_BYTES = std::size_t{ 1 } << 20;   // of one hash

    std::vector<unsigned char> const & Bytes()
    {
        static std::vector<unsigned char> const s_dBytes = []
        {
            std::vector<unsigned char> dBytes(MAX_BYTES);
            std::mt19937 Random(1);
            for (unsigned char & Byte : dBytes)
            {
                Byte = static_cast<unsigned char>(Random());
            }
            return dBytes;
        }();
        return s_dBytes;
    }

    std::uint32_t CrcOurs(unsigned char const * pBytes, std::size_t nBytes)
    {
        return GetCrc32Polynomial(reinterpret_cast<char const *>(pBytes), static_cast<int>(nBytes));
    }
    std::uint32_t CrcLibdeflate(unsigned char const * pBytes, std::size_t nBytes)
    {
        return libdeflate_crc32(0, pBytes, nBytes);
    }
    std::uint32_t CrcZlib(unsigned char const * pBytes, std::size_t nBytes)
    {
        return static_cast<std::uint32_t>(crc32(0, pBytes, static_cast<uInt>(nBytes)));
    }

    constexpr std::uint32_t PREVIOUS = 0xCBF43926;   // CRC of the pieces before, "123456789"

    std::uint32_t NextOurs(unsigned char const * pBytes, std::size_t nBytes)
    {
        return Crc32(std::as_bytes(std::span(pBytes, nBytes)), PREVIOUS);
    }
    std::uint32_t NextLibdeflate(unsigned char const * pBytes, std::size_t nBytes)
    {
        return libdeflate_crc32(PREVIOUS, pBytes, nBytes);
    }
    std::uint32_t NextZlib(unsigned char const * pBytes, std::size_t nBytes)
    {
        return static_cast<std::uint32_t>(crc32(PREVIOUS, pBytes, static_cast<uInt>(nBytes)));
    }

    std::uint32_t Sha1Ours(unsigned char const * pBytes, std::size_t nBytes)
    {
        SHA1Context Context;
        unsigned char dHash[SHA1_HASH_SIZE];
        SHA1Reset(&Context);
        SHA1Input(&Context, pBytes, nBytes);
        SHA1Result(&Context, dHash);
        return dHash[0];
    }
    std::uint32_t Sha1OpenSsl(unsigned char const * pBytes, std::size_t nBytes)
    {
        unsigned char dHash[SHA_DIGEST_LENGTH];
        SHA1(pBytes, nBytes, dHash);
        return dHash[0];
    }

    // Hashes the same bytes repeatedly. The compiler knows the function, as in a normal call.
    template <std::uint32_t (*FUNCTION)(unsigned char const *, std::size_t)>
    void Run(benchmark::State & State, std::size_t nBytes)
    {
        unsigned char const * pBytes = Bytes().data();
        for (auto _ : State)
        {
            benchmark::DoNotOptimize(pBytes);
            benchmark::DoNotOptimize(FUNCTION(pBytes, nBytes));
        }
        State.SetBytesProcessed(State.iterations() * static_cast<std::int64_t>(nBytes));
    }

    template <std::uint32_t (*FUNCTION)(unsigned char const *, std::size_t)>
    void Register(std::string const & sName, std::size_t nBytes)
    {
        std::string const sFull = sName + "/" + std::to_string(nBytes);
        benchmark::RegisterBenchmark(
            sFull.c_str(), [nBytes](benchmark::State & State) { Run<FUNCTION>(State, nBytes); });
    }

    void Crc32OfOneWord(benchmark::State & State)
    {
        std::uint32_t dwValue = 1;
        for (auto _ : State)
        {
            benchmark::DoNotOptimize(dwValue);
            benchmark::DoNotOptimize(GetCrc32Polynomial4(dwValue));
        }
    }

    bool const g_bRegistered = []
    {
        for (std::size_t const nBytes :
            std::initializer_list<std::size_t>{ 4, 8, 15, 16, 31, 64, 100, 256, 1024, 4096, 65536, MAX_BYTES })
        {
            Register<CrcOurs>("Crc32/ours", nBytes);
            Register<CrcLibdeflate>("Crc32/libdeflate", nBytes);
            Register<CrcZlib>("Crc32/zlib", nBytes);
        }
        for (std::size_t const nBytes : std::initializer_list<std::size_t>{ 16, 255, 1023, 65536 })
        {
            Register<NextOurs>("Crc32Next/ours", nBytes);
            Register<NextLibdeflate>("Crc32Next/libdeflate", nBytes);
            Register<NextZlib>("Crc32Next/zlib", nBytes);
        }
        benchmark::RegisterBenchmark("Crc32/ours word/4", Crc32OfOneWord);
        for (std::size_t const nBytes : std::initializer_list<std::size_t>{ 4, 16, 64, 256, 4096, 65536, MAX_BYTES })
        {
            Register<Sha1Ours>("Sha1/ours", nBytes);
            Register<Sha1OpenSsl>("Sha1/openssl", nBytes);
        }
        return true;
    }();
}
