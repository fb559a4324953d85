// cmemory.h: the tracked allocator and its categories.
//
// Every block of the process belongs to a category, and counters say at any moment how many blocks and bytes each
// category holds, and their peaks. A stack of categories for each thread says who is allocating: a MemCategoryScope_c
// selects a category for a scope, and a block taken with ZQ_NEW, or with a plain `new` anywhere in the process, counts
// under it until it is freed, whoever frees it. Byte figures are the heap's blocks, with alignment header and slack.
//
// The heap is tracked from load time on (MemoryInit runs in the first global constructor). One lock, g_CategoryLock,
// guards the counters; a block costs one lock cycle and a consistency check on each way.
//
// The library must be linked to the executable itself, before the C++ runtime. Where `delete` of the process is not
// the library's all the same (the library arrives through another library or a plugin; a checker has its own), `new`,
// ZQ_NEW and CoreMemory use the process's operators: every block still reaches the heap that it came from, but these
// blocks are not tracked. One line on standard error says so at load.
#pragma once

#include "zqcore/cconfig.h"

#include "platform/threads.h"

#include <atomic>
#include <cstddef>
#include <new>

namespace mem
{
    /// The categories. 0 holds what has no known owner, 1 the runtime's own blocks, which are never counted.
    // clang-format off
    enum Categories_e : int
    {
        UNDEFINED, CRT, NORMAL_BLOCK, file, logger, GamePipes, Rpg, RpgText, Net, NetQueue, Server,
        ServerReplicatePool, Client, render, rvb, rtex, Logic, FMSound, Particle, rib, kiln, Frames, Game, rmesh,
        rmeshinst, rmesh_col, animdata, animinstance, Building, scene, kilndebug, Collision, Noise, GameData, DataBase,
        Sound, calc, rbMemObject, ScaleForm, FjordStudioRuntime, WinMisc, Core, Input, RenderFont, DebugDraw,
        SpotlitScene, GameUI, AI, Lua, Decals, Application, Localization, DB, GameServer, GameLogic, GameScripts,
        GameWorld, GameView, Landscape, GameRender, Tools, GameLogs, Interface, GFX, Generator, GameNetwork,
        TOTAL   // how many there are
    };
    // clang-format on

    /// The figures of one category; as wide as a pointer.
    struct CategoryInfo
    {
        std::ptrdiff_t iCount;             // blocks alive
        std::ptrdiff_t iMaxCount;          // peak of iCount
        std::ptrdiff_t iBytes;             // bytes alive
        std::ptrdiff_t iMaxBytes;          // peak of iBytes
        std::ptrdiff_t iLastFrameAllocs;   // allocations in the last finished frame
        std::ptrdiff_t iFrameAllocs;       // allocations so far in this frame
    };

    /// A block that describes itself: MEMORY_OBJECT_FLAG in its word says that one stands at the start of the block.
    class Object_i
    {
    public:
        /// Writes a description of up to 255 characters and a terminator; for the leak report.
        virtual void Describe(char * szBuffer, std::size_t nSize) const = 0;

    protected:
        ~Object_i() = default;
    };

    /// What a user allocator says of itself: three words whose meaning is its own.
    struct UserAllocatorInfo_t
    {
        std::uint32_t dwInfo0, dwInfo1, dwInfo2;
    };

    /// An allocator apart from this heap that wants to appear in reports.
    class UserAllocatorInfo_i
    {
    public:
        virtual bool GetInfo(UserAllocatorInfo_t & Info) = 0;

    protected:
        ~UserAllocatorInfo_i() = default;
    };

    /// Three words, handed out as they are.
    class ZQ_API UserAllocatorInfo_c : public UserAllocatorInfo_i
    {
    public:
        bool GetInfo(UserAllocatorInfo_t & Info) override;

        std::uint32_t m_dwInfo0 = 0, m_dwInfo1 = 0, m_dwInfo2 = 0;
    };

    inline constexpr unsigned MAX_USER_ALLOCATORS = 64;

    /// Enters an allocator into the first free slot; false if all are taken. It is not owned.
    ZQ_API bool RegisterUserAllocator(UserAllocatorInfo_i & Allocator);

    /// Clears the allocator's slot; false if it has none.
    ZQ_API bool UnRegisterUserAllocator(UserAllocatorInfo_i & Allocator);

    /// Copies up to nMax allocators in slot order and returns how many; with a null pOut, how many there are.
    ZQ_API unsigned GetUserAllocators(UserAllocatorInfo_i ** pOut, unsigned nMax);
}

/// The block's word: the kind in the low half, the category above it, the flag of self-describing blocks on top.
inline constexpr int MEMORY_NORMAL_BLOCK = 1;
inline constexpr int MEMORY_CRT_BLOCK = 2;
inline constexpr int MEMORY_CLIENT_BLOCK = 4;
inline constexpr int MEMORY_CATEGORY_SHIFT = 16;
inline constexpr std::uint32_t MEMORY_CATEGORY_MASK = 0x7FFF;
inline constexpr std::uint32_t MEMORY_OBJECT_FLAG = 0x80000000u;

/// The word that operator_new gives to a block asked for with this one: a client block of the word's category, or of
/// the one on top of the thread's stack.
ZQ_API std::uint32_t MemoryBlockWord(int iBlockType);

/// `ZQ_NEW T(...)` takes a block of the current category that knows its file and line; free it with delete.
#define ZQ_NEW new (MEMORY_CLIENT_BLOCK, __FILE__, __LINE__)

namespace CoreMemory
{
    /// Takes a block aligned to 16. A category in the word wins over the thread's stack; with category 0, or with kind
    /// 1, the stack decides. Every block becomes a client block. sFile is kept as a pointer. Exhaustion ends in Abort;
    /// null only before MemoryInit and after MemoryDone.
    ZQ_API void * operator_new(std::size_t nBytes, int iBlockType, char const * sFile, int iLine);
    ZQ_API void * operator_new_array(std::size_t nBytes, int iBlockType, char const * sFile, int iLine);
    ZQ_API void operator_delete(void * p);
    ZQ_API void operator_delete_array(void * p);

    /// The same for types whose alignment is above 16, a power of 2.
    ZQ_API void * operator_new_aligned(
        std::size_t nBytes, std::size_t nAlignment, int iBlockType, char const * sFile, int iLine);
    ZQ_API void * operator_new_array_aligned(
        std::size_t nBytes, std::size_t nAlignment, int iBlockType, char const * sFile, int iLine);
    ZQ_API void operator_delete_aligned(void * p, std::size_t nAlignment);
    ZQ_API void operator_delete_array_aligned(void * p, std::size_t nAlignment);
}

/// Select a category for this thread, and take it back; pushes of the same category in a row share one entry. At most
/// 64 changes of category may be open in a thread, and about 100 threads that have pushed may run at a time; one more
/// is complained of, and goes without a category. Cost no lock but at a thread's first push.
ZQ_API void MemoryCategoryPush(mem::Categories_e eCategory);
ZQ_API void MemoryCategoryPop(mem::Categories_e eCategory);

/// Selects a category for a scope.
class MemCategoryScope_c
{
public:
    explicit MemCategoryScope_c(mem::Categories_e eCategory)
        : m_eCategory(eCategory)
    {
        MemoryCategoryPush(eCategory);
    }
    ~MemCategoryScope_c() { MemoryCategoryPop(m_eCategory); }
    MemCategoryScope_c(MemCategoryScope_c const &) = delete;
    MemCategoryScope_c & operator=(MemCategoryScope_c const &) = delete;

private:
    mem::Categories_e const m_eCategory;
};

/// The category's name. No bounds check.
ZQ_API char const * MemoryCategoryName(mem::Categories_e eCategory);

/// Copies the records of all categories, mem::TOTAL of them, and the totals, as of one moment.
ZQ_API void MemoryCategoriesGet(
    mem::CategoryInfo * pInfo, std::ptrdiff_t & iAllocs, std::ptrdiff_t & iBytes, std::ptrdiff_t & iMaxBytes);

/// Blocks alive, bytes alive, and the peak of the latter; read without the lock.
ZQ_API std::ptrdiff_t MemoryTotalAllocations();
ZQ_API std::ptrdiff_t MemoryTotalBytesAllocated();
ZQ_API std::ptrdiff_t MemoryMaxTotalBytesAllocated();

/// Start and end the tracking. The library's first global object calls them; nobody else needs to. At the end of a
/// process in which other threads still run, the tracking goes on.
ZQ_API void MemoryInit();
ZQ_API void MemoryDone();

/// Guards the counters, the table of category stacks and the user allocators. It is the debug heap's own lock, so that
/// a heap event costs one cycle.
extern ZQ_API plat::Lock_c & g_CategoryLock;

/// Whether the heap is tracked.
extern ZQ_API std::atomic<bool> g_MemoryInit;

/// An aligned block: the alignment is a power of 2, and (pointer + offset) is aligned. A bad alignment or offset is
/// reported and gives null. The word is kept as it stands, whatever the thread's stack says (see MemoryBlockWord).
ZQ_API void * aligned_malloc_dbg(
    std::size_t nSize, std::size_t nAlignment, int iBlockType, char const * sFile, int iLine);
ZQ_API void * aligned_offset_malloc_dbg(
    std::size_t nSize, std::size_t nAlignment, std::size_t nOffset, int iBlockType, char const * sFile, int iLine);

/// A null p allocates, a size of 0 frees and gives null; else the contents move to a new block.
ZQ_API void * aligned_realloc_dbg(
    void * p, std::size_t nSize, std::size_t nAlignment, int iBlockType, char const * sFile, int iLine);
ZQ_API void * aligned_offset_realloc_dbg(void * p, std::size_t nSize, std::size_t nAlignment, std::size_t nOffset,
    int iBlockType, char const * sFile, int iLine);

/// Frees an aligned block. Null does nothing. Damage before and after the block is reported; a block that was freed
/// already, and one of another heap, is reported and left alone. A second free is noticed as long as the memory has not
/// been used again; one of a large block whose pages the system has back is an access violation.
ZQ_API void aligned_free_dbg(void * p);

/// The heap's block behind an aligned pointer, or null.
ZQ_API void * get_block_from_aligned(void * p);

/// The aligned pointer in a block of the heap, or null if the header's gap bytes don't match.
ZQ_API void * get_aligned_from_block(void * pBlock, std::size_t nAlignment, std::size_t nOffset);

inline void * operator new(std::size_t nBytes, int iBlockType, char const * sFile, int iLine) noexcept
{
    return CoreMemory::operator_new(nBytes, iBlockType, sFile, iLine);
}

inline void * operator new[](std::size_t nBytes, int iBlockType, char const * sFile, int iLine) noexcept
{
    return CoreMemory::operator_new_array(nBytes, iBlockType, sFile, iLine);
}

inline void * operator new(
    std::size_t nBytes, std::align_val_t iAlignment, int iBlockType, char const * sFile, int iLine) noexcept
{
    return CoreMemory::operator_new_aligned(nBytes, static_cast<std::size_t>(iAlignment), iBlockType, sFile, iLine);
}

inline void * operator new[](
    std::size_t nBytes, std::align_val_t iAlignment, int iBlockType, char const * sFile, int iLine) noexcept
{
    return CoreMemory::operator_new_array_aligned(
        nBytes, static_cast<std::size_t>(iAlignment), iBlockType, sFile, iLine);
}

/// These are called only if a constructor after ZQ_NEW throws.
inline void operator delete(void * p, int, char const *, int)
{
    CoreMemory::operator_delete(p);
}

inline void operator delete[](void * p, int, char const *, int)
{
    CoreMemory::operator_delete_array(p);
}

inline void operator delete(void * p, std::align_val_t iAlignment, int, char const *, int)
{
    CoreMemory::operator_delete_aligned(p, static_cast<std::size_t>(iAlignment));
}

inline void operator delete[](void * p, std::align_val_t iAlignment, int, char const *, int)
{
    CoreMemory::operator_delete_array_aligned(p, static_cast<std::size_t>(iAlignment));
}
