// Reports the blocks that still live at the end of the process.
#include "platform/debugheap.h"
#include "platform/process.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <link.h>
#include <locale>
#include <span>

namespace plat
{
    namespace
    {
        constexpr int MAX_LEAKS_LISTED = 64;

        constinit std::atomic<HeapDump_t> g_fnDump = nullptr;
        constinit std::atomic<bool> g_bLeakCheck = false;

        // Module of the C++ runtime. Has no parts if it is this library's too: there the runtime's globals can't be
        // distinguished from others.
        struct Runtime_s
        {
            std::span<ElfW(Phdr) const> dParts;
            std::uintptr_t nBias = 0;   // from the addresses of the parts to those in memory
        };
        constinit Runtime_s g_Runtime;

        bool Holds(dl_phdr_info const & Module, void const * pAddress)
        {
            std::uintptr_t const nAddress = reinterpret_cast<std::uintptr_t>(pAddress) - Module.dlpi_addr;
            return std::any_of(Module.dlpi_phdr, Module.dlpi_phdr + Module.dlpi_phnum,
                [&](ElfW(Phdr) const & Part)
                { return Part.p_type == PT_LOAD && nAddress - Part.p_vaddr < Part.p_memsz; });
        }

        // Runs at load, when no lock is held. At the end of the process the loader's locks could be: by a thread that
        // loads a module and waits for the heap, or in the child of a fork for ever.
        __attribute__((constructor(ZQ_FIRST_PRIORITY))) void FindRuntime()
        {
            auto const Visit = [](dl_phdr_info * pModule, std::size_t, void *)
            {
                bool const bRuntime = Holds(*pModule, &std::locale::classic());
                if (bRuntime && !Holds(*pModule, &g_bLeakCheck))
                {
                    g_Runtime = { { pModule->dlpi_phdr, pModule->dlpi_phnum }, pModule->dlpi_addr };
                }
                return bRuntime ? 1 : 0;
            };
            ::dl_iterate_phdr(Visit, nullptr);
        }

        // The live blocks by address. Those that the C++ runtime keeps are marked: its globals reach them, directly or
        // through blocks that it keeps too. Requires g_HeapLock, and the number of the live blocks.
        class LiveBlocks_c
        {
        public:
            explicit LiveBlocks_c(std::size_t nBlocks)
                : m_nBlocks(nBlocks)
            {
                m_dBlocks = static_cast<Block_s *>(std::calloc(m_nBlocks + 1, sizeof(Block_s)));
                m_dToScan = static_cast<Block_s **>(std::calloc(m_nBlocks + 1, sizeof(Block_s *)));
                if (!m_dBlocks || !m_dToScan)
                {
                    m_nBlocks = 0;   // nothing is known to be kept
                    return;
                }
                Block_s * pNext = m_dBlocks;
                HeapWalk(
                    [](HeapBlock_t const & Block, void * ppNext)
                    {
                        auto const nBegin = reinterpret_cast<std::uintptr_t>(Block.pOwn);
                        *(*static_cast<Block_s **>(ppNext))++ = { nBegin, nBegin + Block.nOwn, false };
                    },
                    &pNext);
                std::sort(m_dBlocks, m_dBlocks + m_nBlocks,
                    [](Block_s const & Left, Block_s const & Right) { return Left.nBegin < Right.nBegin; });
                ScanRuntime();
                while (m_nToScan != 0)
                {
                    Block_s const & Block = *m_dToScan[--m_nToScan];
                    Scan(Block.nBegin, Block.nEnd);
                }
            }

            ~LiveBlocks_c()
            {
                std::free(m_dBlocks);
                std::free(m_dToScan);
            }
            LiveBlocks_c(LiveBlocks_c const &) = delete;
            LiveBlocks_c & operator=(LiveBlocks_c const &) = delete;

            bool IsKept(HeapBlock_t const & Block) const
            {
                Block_s const * const pBlock = Find(reinterpret_cast<std::uintptr_t>(Block.pOwn));
                return pBlock && pBlock->bKept;
            }

        private:
            struct Block_s
            {
                std::uintptr_t nBegin, nEnd;
                bool bKept;
            };

            // Returns the block that holds an address, or null.
            Block_s * Find(std::uintptr_t nAddress) const
            {
                Block_s * const pAbove = std::upper_bound(m_dBlocks, m_dBlocks + m_nBlocks, nAddress,
                    [](std::uintptr_t nSought, Block_s const & Block) { return nSought < Block.nBegin; });
                return pAbove != m_dBlocks && nAddress < pAbove[-1].nEnd ? pAbove - 1 : nullptr;
            }

            // Marks the blocks that the words of a range point into. The constructor scans them later.
            void Scan(std::uintptr_t nBegin, std::uintptr_t nEnd)
            {
                std::uintptr_t nWord;
                for (nBegin = (nBegin + sizeof nWord - 1) & ~(sizeof nWord - 1); nBegin + sizeof nWord <= nEnd;
                     nBegin += sizeof nWord)
                {
                    std::memcpy(&nWord, reinterpret_cast<void const *>(nBegin), sizeof nWord);
                    Block_s * const pBlock = Find(nWord);
                    if (pBlock && !pBlock->bKept)
                    {
                        pBlock->bKept = true;
                        m_dToScan[m_nToScan++] = pBlock;
                    }
                }
            }

            void ScanRuntime()
            {
                for (ElfW(Phdr) const & Part : g_Runtime.dParts)
                {
                    if (Part.p_type == PT_LOAD && (Part.p_flags & PF_W) != 0)
                    {
                        std::uintptr_t const nBegin = g_Runtime.nBias + Part.p_vaddr;
                        Scan(nBegin, nBegin + Part.p_memsz);
                    }
                }
            }

            Block_s * m_dBlocks = nullptr;
            Block_s ** m_dToScan = nullptr;
            std::size_t m_nBlocks;
            std::size_t m_nToScan = 0;
        };

        // Leaks that a report has found so far. Blocks of a plain `new` have no source line and are not listed.
        struct Leaks_s
        {
            LiveBlocks_c const * pLive;
            int nBlocks = 0;
            int nKnown = 0;   // blocks with a source line
            std::size_t nBytes = 0;
        };

        // Counts a block as a leak and passes it to the dump function, unless the runtime keeps it. Lists the first
        // ones that have a source line.
        void ReportLeak(HeapBlock_t const & Block, void * pContext)
        {
            auto & Leaks = *static_cast<Leaks_s *>(pContext);
            if (Leaks.pLive->IsKept(Block))
            {
                return;
            }
            if (Block.szFile && Leaks.nKnown++ < MAX_LEAKS_LISTED)
            {
                char szFile[HEAP_FILE_SIZE];
                HeapFileName(Block, szFile, sizeof szFile);
                HeapReport("Memory leak: %zu bytes at 0x%08zX, category %s, %s(%i)\n", Block.nOwn,
                    HeapAddressOf(Block.pOwn), HeapWordName(Block.dwWord), szFile, Block.iLine);
            }
            if (HeapDump_t const fnDump = g_fnDump)
            {
                fnDump(Block);
            }
            ++Leaks.nBlocks;
            Leaks.nBytes += Block.nOwn;
        }

        // Runs after the destructors of the library and of all modules that use it.
        __attribute__((destructor(ZQ_FIRST_PRIORITY))) void ReportLeaks()
        {
            if (!g_bLeakCheck)
            {
                return;
            }
            int const nOthers = ProcessOtherThreads();
            LockScope_c const Scope(g_HeapLock);
            if (HeapIsEmpty())
            {
                return;
            }
            if (nOthers != 0)   // one of them may be about to describe a block
            {
                HeapReport("Blocks that still live are not listed: %i other threads are running.\n", nOthers);
                return;
            }
            std::size_t nLive = 0;
            HeapWalk([](HeapBlock_t const &, void * pCount) { ++*static_cast<std::size_t *>(pCount); }, &nLive);
            LiveBlocks_c const Live(nLive);
            Leaks_s Leaks = { .pLive = &Live };
            HeapWalk(ReportLeak, &Leaks);
            if (Leaks.nBlocks != 0)
            {
                HeapReport("Memory leaks: %i blocks, %zu bytes; %i of them of unknown source\n", Leaks.nBlocks,
                    Leaks.nBytes, Leaks.nBlocks - Leaks.nKnown);
            }
        }
    }

    void HeapSetDump(HeapDump_t fnDump)
    {
        g_fnDump = fnDump;
    }

    void HeapSetLeakCheck(bool bCheck)
    {
        g_bLeakCheck = bCheck;
    }
}
