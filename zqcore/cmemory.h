// cmemory.h: the tracked allocator and its categories.
//
// Every block of the process belongs to a category. Counters hold the blocks and bytes of each category and their
// peaks. Each thread has a stack of categories. A MemCategoryScope_c selects one for a scope. A block of ZQ_NEW, or of
// a plain `new` anywhere in the process, counts under the selected category until it is freed, whichever thread frees
// it. Blocks of libraries that are initialised before this one count too, under UNDEFINED. Byte figures are those of
// the heap's blocks: they include the alignment header and the slack.
//
// Requires that the library is linked to the executable itself, before the C++ runtime. If another library or a plugin
// loads it instead, or a checker replaces `delete`, the process may bind `delete` to another function. Then `new`,
// ZQ_NEW and CoreMemory use the process's operators. Every block still returns to its own heap, but only those are
// tracked that these operators pass on to the library's. One line on standard error reports that at load.
//
// All this is the debug heap. A library that is built with ZQCORE_HEAP=ship, and the target zqcore::ship, have the heap
// of a shipped game instead. It keeps categories, counters and reports. It adds 16 bytes to a block of alignment 16,
// more to one of a larger alignment, and acquires no lock to count it:
// - Each thread counts for itself, and a reader adds up. While other threads allocate, figures are of slightly
//   different moments. Peaks of categories are those that readers saw. The peak of all bytes may be up to 512 KiB too
//   low or too high for each thread and category.
// - Byte figures are those of the callers. The heap does not fill memory, find damage or report lost blocks, a kind of
//   block that does not exist or, while it is not tracked, an allocation that fails. The snapshot has a line for each
//   category with live blocks.
//
// Ownership: the caller frees its blocks. File names and user allocators are kept as pointers.
// Threads: any thread. One lock, g_CategoryLock, guards the counters. A thread's stack of categories is its own.
// Cost: two lock cycles for an allocation, one for a release, and one consistency check for each. A block of alignment
// 16 costs 99 bytes, or 75 with 32 bits. Selecting a category acquires no lock, except at a thread's first push.
// Failure: an exhausted heap ends in Abort, but a `new` with std::nothrow returns null. Damaged and foreign blocks are
// reported (MemoryReportSet, cmemoryreport.h).
//
//     {
//         MemCategoryScope_c const Category(mem::GameData);
//         int * const pTable = ZQ_NEW int[1000];   // counts under GameData until delete
//         Log("%lli bytes in all", static_cast<long long>(MemoryTotalBytesAllocated()));
//         delete[] pTable;
//     }
#pragma once

#include "zqcore/cconfig.h"

#include "platform/threads.h"

#include <atomic>
#include <cstddef>
#include <new>

/// The categories in order: the enumerators of mem::Categories_e. Their spellings are their names in reports. UNDEFINED
/// holds the blocks without a category, CRT the runtime's own blocks, which are never counted.
// clang-format off
#define ZQ_MEMORY_CATEGORIES(X) \
    X(UNDEFINED) X(CRT) X(NORMAL_BLOCK) X(file) X(logger) X(GamePipes) X(Rpg) X(RpgText) X(Net) X(NetQueue) \
    X(Server) X(ServerReplicatePool) X(Client) X(render) X(rvb) X(rtex) X(Logic) X(FMSound) X(Particle) \
    X(rib) X(kiln) X(Frames) X(Game) X(rmesh) X(rmeshinst) X(rmesh_col) X(animdata) X(animinstance) \
    X(Building) X(scene) X(kilndebug) X(Collision) X(Noise) X(GameData) X(DataBase) X(Sound) X(calc) \
    X(rbMemObject) X(ScaleForm) X(FjordStudioRuntime) X(WinMisc) X(Core) X(Input) X(RenderFont) X(DebugDraw) \
    X(SpotlitScene) X(GameUI) X(AI) X(Lua) X(Decals) X(Application) X(Localization) X(DB) X(GameServer) \
    X(GameLogic) X(GameScripts) X(GameWorld) X(GameView) X(Landscape) X(GameRender) X(Tools) X(GameLogs) \
    X(Interface) X(GFX) X(Generator) X(GameNetwork)
// clang-format on

/// The word of a block: 32 bits that the debug heap stores with it. They are the kind in the low 16 bits, the category
/// in the 15 bits above, and MEMORY_OBJECT_FLAG in the top bit. The kinds are the three _BLOCK values, with the numbers
/// of the Windows debug heap (_NORMAL_BLOCK and others).
inline constexpr int MEMORY_NORMAL_BLOCK = 1;
inline constexpr int MEMORY_CRT_BLOCK = 2;
inline constexpr int MEMORY_CLIENT_BLOCK = 4;
inline constexpr int MEMORY_CATEGORY_SHIFT = 16;
inline constexpr std::uint32_t MEMORY_CATEGORY_MASK = 0x7FFF;
inline constexpr std::uint32_t MEMORY_OBJECT_FLAG = 0x80000000u;

inline constexpr std::size_t MEMORY_ALIGNMENT = 16;   // bytes; of each block of ZQ_NEW and `new`

namespace mem
{
    // clang-format off
    /// The categories of ZQ_MEMORY_CATEGORIES.
    enum Categories_e : int
    {
#define ZQ_ENUMERATOR(Name) Name,
        ZQ_MEMORY_CATEGORIES(ZQ_ENUMERATOR)
#undef ZQ_ENUMERATOR
        TOTAL   // number of categories
    };
    // clang-format on

    /// Figures of one category.
    struct CategoryInfo
    {
        std::ptrdiff_t iCount;             // blocks alive
        std::ptrdiff_t iMaxCount;          // peak of iCount
        std::ptrdiff_t iBytes;             // bytes alive
        std::ptrdiff_t iMaxBytes;          // peak of iBytes
        std::ptrdiff_t iLastFrameAllocs;   // allocations in the last finished frame
        std::ptrdiff_t iFrameAllocs;       // allocations so far in this frame
    };

    /// An object that describes itself in the leak report. MEMORY_OBJECT_FLAG in a block's word marks a block that
    /// begins with such an object.
    class Object_i
    {
    public:
        /// Writes a description of up to 255 characters. The buffer has 256 bytes, which are all 0 before.
        virtual void Describe(char * szBuffer, std::size_t nSize) const = 0;

    protected:
        ~Object_i() = default;
    };

    /// Report of a user allocator: three words, whose meaning the allocator defines.
    struct UserAllocatorInfo_t
    {
        std::uint32_t dwInfo0, dwInfo1, dwInfo2;   // numbers or flags, for instance
    };

    /// Interface of an allocator that does not use this heap and wants to appear in reports.
    class UserAllocatorInfo_i
    {
    public:
        /// Fills Info and returns true. Returns false if there is nothing to report.
        virtual bool GetInfo(UserAllocatorInfo_t & Info) = 0;

    protected:
        ~UserAllocatorInfo_i() = default;
    };

    /// A user allocator that reports the three words that were stored in it.
    class ZQ_API UserAllocatorInfo_c : public UserAllocatorInfo_i
    {
    public:
        /// Fills Info with the three words and returns true.
        bool GetInfo(UserAllocatorInfo_t & Info) override;

        std::uint32_t m_dwInfo0 = 0, m_dwInfo1 = 0, m_dwInfo2 = 0;   // what GetInfo reports
    };

    /// Maximum number of user allocators that are registered at a time.
    inline constexpr unsigned MAX_USER_ALLOCATORS = 64;

    /// Stores a pointer to the allocator in the first free slot and returns true. Returns false if all slots are in
    /// use.
    ZQ_API bool RegisterUserAllocator(UserAllocatorInfo_i & Allocator);

    /// Clears the allocator's slot and returns true. Returns false if it has none.
    ZQ_API bool UnRegisterUserAllocator(UserAllocatorInfo_i & Allocator);

    /// Copies up to nMax allocators in slot order and returns the number copied. With a null pOut it returns the number
    /// registered.
    ZQ_API unsigned GetUserAllocators(UserAllocatorInfo_i ** pOut, unsigned nMax);
}

/// Returns the word of a block of operator_new. The heap of a shipped game stores only the category that the word has
/// while the heap is tracked. iBlockType is a word too.
/// - Its kind is always MEMORY_CLIENT_BLOCK. A kind of iBlockType above that is reported.
/// - MEMORY_OBJECT_FLAG is that of iBlockType.
/// - The category is the one on top of the thread's stack, or UNDEFINED if the stack is empty or the heap is not
///   tracked, in these cases:
///   - the category of iBlockType is UNDEFINED or out of range.
///   - the kind of iBlockType is MEMORY_NORMAL_BLOCK.
/// - In all other cases the category is that of iBlockType.
ZQ_API std::uint32_t MemoryBlockWord(int iBlockType);

/// `ZQ_NEW T(...)` allocates a block of the selected category. The debug heap records its file and line. `delete` frees
/// it, and `delete[]` an array.
#define ZQ_NEW new (MEMORY_CLIENT_BLOCK, __FILE__, __LINE__)

namespace CoreMemory
{
    /// Allocate and return a block that is aligned to MEMORY_ALIGNMENT. MemoryBlockWord decides its category. On
    /// exhaustion they call Abort. They return null only before MemoryInit and after MemoryDone.
    ZQ_API void * operator_new(std::size_t nBytes, int iBlockType, char const * sFile, int iLine);
    ZQ_API void * operator_new_array(std::size_t nBytes, int iBlockType, char const * sFile, int iLine);

    /// Free a block of the matching form of operator_new. Null does nothing.
    ZQ_API void operator_delete(void * p);
    ZQ_API void operator_delete_array(void * p);

    /// Allocate and free blocks of types whose alignment is above MEMORY_ALIGNMENT, as the functions above do.
    /// nAlignment is in bytes and a power of 2. Require that a block is freed with the alignment of its allocation.
    ZQ_API void * operator_new_aligned(
        std::size_t nBytes, std::size_t nAlignment, int iBlockType, char const * sFile, int iLine);
    ZQ_API void * operator_new_array_aligned(
        std::size_t nBytes, std::size_t nAlignment, int iBlockType, char const * sFile, int iLine);
    ZQ_API void operator_delete_aligned(void * p, std::size_t nAlignment);
    ZQ_API void operator_delete_array_aligned(void * p, std::size_t nAlignment);
}

/// Select a category for this thread, and restore the previous one.
/// - A pop asserts that its category is on top. If the developer continues, it removes the top one.
/// - Pushes of the same category in a row share an entry. A push asserts that the heap is tracked, and that the thread
///   has fewer than 64 entries.
/// - 127 running threads can have pushed. The push of a further thread is logged and asserts, and its blocks are
///   counted under UNDEFINED.
ZQ_API void MemoryCategoryPush(mem::Categories_e eCategory);
ZQ_API void MemoryCategoryPop(mem::Categories_e eCategory);

/// Scope in which this thread allocates under a category.
class MemCategoryScope_c
{
public:
    /// Selects the category until the end of the scope.
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

/// Returns the category's name. Requires a category from 0 to mem::TOTAL, whose name is "TOTAL".
ZQ_API char const * MemoryCategoryName(mem::Categories_e eCategory);

/// Copies the figures of all categories and the totals. Those of the debug heap are all of the same moment. The
/// totals are live blocks, live bytes and the peak of live bytes. Requires that pInfo has room for mem::TOTAL entries.
ZQ_API void MemoryCategoriesGet(
    mem::CategoryInfo * pInfo, std::ptrdiff_t & iAllocs, std::ptrdiff_t & iBytes, std::ptrdiff_t & iMaxBytes);

/// Return the number of live blocks, the number of live bytes and the peak of live bytes. They acquire no lock.
ZQ_API std::ptrdiff_t MemoryTotalAllocations();
ZQ_API std::ptrdiff_t MemoryTotalBytesAllocated();
ZQ_API std::ptrdiff_t MemoryMaxTotalBytesAllocated();

/// Start and end the tracking. Only the library's first global object calls them. The debug heap's MemoryInit counts
/// the blocks that live already, but not as allocations of a frame. If other threads still run at the end of the
/// process, the tracking continues. MemoryInit asserts that the tracking is off, MemoryDone that it is on.
ZQ_API void MemoryInit();
ZQ_API void MemoryDone();

/// Lock of the counters, of the table of category stacks and of the user allocators. It is the debug heap's own lock,
/// so a heap event costs one lock cycle.
extern ZQ_API plat::Lock_c & g_CategoryLock;

/// Whether the heap is tracked.
extern ZQ_API std::atomic<bool> g_MemoryInit;

/// Allocate and return a block in which (pointer + nOffset) is aligned to nAlignment, a power of 2. nOffset is 0 or
/// below nSize. The block's word is iBlockType, unlike that of operator_new (MemoryBlockWord). On exhaustion they do
/// what operator_new does. On a bad alignment or offset they report it, set errno to EINVAL and return null.
ZQ_API void * aligned_malloc_dbg(
    std::size_t nSize, std::size_t nAlignment, int iBlockType, char const * sFile, int iLine);
ZQ_API void * aligned_offset_malloc_dbg(
    std::size_t nSize, std::size_t nAlignment, std::size_t nOffset, int iBlockType, char const * sFile, int iLine);

/// Move the contents to a new block and return it. A null p allocates. A size of 0 frees p and returns null. On failure
/// they return null, and p stays allocated.
ZQ_API void * aligned_realloc_dbg(
    void * p, std::size_t nSize, std::size_t nAlignment, int iBlockType, char const * sFile, int iLine);
ZQ_API void * aligned_offset_realloc_dbg(void * p, std::size_t nSize, std::size_t nAlignment, std::size_t nOffset,
    int iBlockType, char const * sFile, int iLine);

/// Frees an aligned block. Null does nothing. The debug heap also checks it:
/// - Reports damage before and after the block.
/// - Reports a block that was freed already or belongs to another heap, and does not free it.
/// - Detects a second free until the memory is used again. If the block was large and its pages were returned to the
///   system, a second free is an access violation.
ZQ_API void aligned_free_dbg(void * p);

/// Returns the heap's block that holds an aligned pointer. Returns null if the pointer is null, and with the debug heap
/// if its header is damaged.
ZQ_API void * get_block_from_aligned(void * p);

/// Returns the aligned pointer in a block of the heap. Requires the alignment and the offset of its allocation. Returns
/// null for a null block. The debug heap returns null too, with a report, if the header's gap bytes do not match.
ZQ_API void * get_aligned_from_block(void * pBlock, std::size_t nAlignment, std::size_t nOffset);

/// Allocate and return a block of ZQ_NEW, as the functions of CoreMemory do.
inline void * operator new(std::size_t nBytes, int iBlockType, char const * sFile, int iLine) noexcept
{
    return CoreMemory::operator_new(nBytes, iBlockType, sFile, iLine);
}

inline void * operator new[](std::size_t nBytes, int iBlockType, char const * sFile, int iLine) noexcept
{
    return CoreMemory::operator_new_array(nBytes, iBlockType, sFile, iLine);
}

inline void * operator new(
    std::size_t nBytes, std::align_val_t nAlignment, int iBlockType, char const * sFile, int iLine) noexcept
{
    return CoreMemory::operator_new_aligned(nBytes, static_cast<std::size_t>(nAlignment), iBlockType, sFile, iLine);
}

inline void * operator new[](
    std::size_t nBytes, std::align_val_t nAlignment, int iBlockType, char const * sFile, int iLine) noexcept
{
    return CoreMemory::operator_new_array_aligned(
        nBytes, static_cast<std::size_t>(nAlignment), iBlockType, sFile, iLine);
}

/// Free a block of ZQ_NEW whose constructor throws. Only the language calls them.
inline void operator delete(void * p, int, char const *, int)
{
    CoreMemory::operator_delete(p);
}

inline void operator delete[](void * p, int, char const *, int)
{
    CoreMemory::operator_delete_array(p);
}

inline void operator delete(void * p, std::align_val_t nAlignment, int, char const *, int)
{
    CoreMemory::operator_delete_aligned(p, static_cast<std::size_t>(nAlignment));
}

inline void operator delete[](void * p, std::align_val_t nAlignment, int, char const *, int)
{
    CoreMemory::operator_delete_array_aligned(p, static_cast<std::size_t>(nAlignment));
}
