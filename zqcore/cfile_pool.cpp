// Storage of file objects. A scan creates thousands at once, which cause fewer cache misses side by side in a pool than
// as separate blocks.
#include "zqcore/cfile.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cgigapool.h"
#include "zqcore/cmemory.h"

namespace
{
    constexpr int FILES_EXPECTED = 8192;   // expected files, of which each growth has room for at least a sixteenth
    static_assert(alignof(FileOnDisk_c) <= MEMORY_ALIGNMENT);

    // The pool, which is never destroyed: objects may outlive every destructor of the process.
    union Pool_u
    {
        constexpr Pool_u()
            : Pool()
        {}
        ~Pool_u() {}

        GigaPoolResizeable_c Pool;
    };

    constinit Pool_u g_Pool;

    // Initialises the pool at the first call, and returns it.
    GigaPoolResizeable_c & GetPool()
    {
        if (g_Pool.Pool.ElementSize() == 0) [[unlikely]]
        {
            g_Pool.Pool.Init(FILES_EXPECTED, sizeof(FileOnDisk_c));
        }
        return g_Pool.Pool;
    }

    // Allocates storage for an object and returns it. Also prefetches the cache lines that the construction of a later
    // one writes, before and after the text sRequestedName: objects are mostly allocated in a row.
    void * AllocateObject()
    {
        constexpr std::size_t BYTES_AFTER = sizeof(plat::Lock_c) + ZQ_CACHE_LINE;
        constexpr std::size_t BYTES_BEFORE = sizeof(File_c) - sizeof(plat::Lock_c) - sizeof(File_c::sRequestedName);
        auto * const pRoom = static_cast<char *>(GetPool().Alloc(false));
        char const * const pLater = pRoom + 2 * sizeof(FileOnDisk_c);
        for (std::size_t i = 0; i <= BYTES_BEFORE; i += ZQ_CACHE_LINE)
        {
            ZQ_PREFETCH(pLater + i);
        }
        for (std::size_t i = sizeof(File_c) - BYTES_AFTER; i < sizeof(File_c); i += ZQ_CACHE_LINE)
        {
            ZQ_PREFETCH(pLater + i);
        }
        return pRoom;
    }
}

void * FileOnDisk_c::operator new(std::size_t nBytes, int iBlockType, char const * sFile, int iLine) noexcept
{
    return nBytes == sizeof(FileOnDisk_c) ? AllocateObject() : ::operator new(nBytes, iBlockType, sFile, iLine);
}

void * FileOnDisk_c::operator new(std::size_t nBytes)
{
    return nBytes == sizeof(FileOnDisk_c) ? AllocateObject() : ::operator new(nBytes);
}

void FileOnDisk_c::operator delete(void * pObject, std::size_t nBytes)
{
    if (nBytes != sizeof(FileOnDisk_c))
    {
        ::operator delete(pObject);
    }
    else if (pObject)
    {
        GetPool().Free(pObject, false);
    }
}

// Runs only if a constructor throws, and none does.
void FileOnDisk_c::operator delete(void * pObject, int, char const *, int) noexcept
{
    operator delete(pObject, sizeof(FileOnDisk_c));
}

void FilePoolTrim()
{
    if (GetPool().WaterMark() == 0)
    {
        GetPool().Reset();
    }
}
