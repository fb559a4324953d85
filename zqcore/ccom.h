// ccom.h: the base of shared objects, counted by reference, with a ledger of who holds them.
//
// An object starts without references; each AddRef notes the holder and the source line, and the Release that takes the
// last one away disposes of the object. What is still held is listed by ComDebug, GetOwners, or the complaint about an
// object that is deleted too early. All notes of the process come from one static pool of COM_REFERENCES: nothing is
// allocated, and memory is touched only as notes are used.
//
// No lock: AddRef and Release must not run at the same time anywhere in the process. AddRef takes constant time, Release
// a walk over the object's own references.
#pragma once

#include "zqcore/cconfig.h"

/// Stands at the start of every object.
inline constexpr std::uint32_t COM_SIGNATURE = 0xC0C0C0C0;

/// References that the process may hold at a time. A further one fails an assertion and is counted without a note.
inline constexpr int COM_REFERENCES = 200000;

/// One reference that is held.
struct ComDebug_t
{
    ComDebug_t * pNext;
    ComDebug_t * pPrev;
    void const * pOwner;   // the holder
    char const * sFile;    // where it was taken; not copied
    int iLine;
};

/// `COM_ADDREF(pObject, this)` and `COM_RELEASE(pObject, this)`: the usual way to call, with the place in the source.
#define COM_ADDREF(pObject, pOwner) ComAddRef((pObject), (pOwner), __FILE__, __LINE__)
#define COM_RELEASE(pObject, pOwner) ComRelease((pObject), (pOwner), __FILE__, __LINE__)

class ZQ_API ComObject_c
{
public:
    ComObject_c() = default;
    ComObject_c(ComObject_c const &) = delete;
    ComObject_c & operator=(ComObject_c const &) = delete;

    /// Adds a reference held by pOwner, which is not null; the count before. pObject is the object again, to catch a call
    /// through a wrong pointer. A null owner, if the developer goes on, is counted without a note.
    std::uint32_t AddRef(void const * pOwner, char const * sFile, int iLine, void const * pObject) const;

    /// Takes the owner's newest reference away, or one without a note for a null owner; true if it was the last one and
    /// the object was disposed of. A pointer to no object, or to a dead one, is told by a failed assertion and left alone,
    /// whatever it points to; so is an object without references.
    bool Release(void const * pOwner, char const * sFile, int iLine, void const * pObject) const;

    /// Logs the references, the newest first.
    void ComDebug();

    /// Copies up to iMax references, the newest first, and returns how many; says on the debugger's output if there are
    /// more.
    int GetOwners(ComDebug_t * const pOut, int iMax);

    /// References that can still be taken in this process. Walks those that were ever used.
    static int GetFreeReferences();

protected:
    /// An object that is still referenced is reported with its owners, and its notes are taken back.
    virtual ~ComObject_c();

    /// Called without references: deletes the object. A subclass may do something else with it.
    virtual void Dispose() const;

private:
    ZQ_COLD std::uint32_t AddRefRarely(void const * pOwner, char const * sFile, int iLine, void const * pObject) const;
    ZQ_COLD static bool ReleaseRarely(ComObject_c const * pThis, void const * pOwner, void const * pObject);
    static bool IsSound(ComObject_c const * pThis, void const * pObject);
    static bool CanRelease(ComObject_c const * pThis, void const * pObject);
    ComDebug_t * FindNote(void const * pOwner) const;
    bool LowerCount() const;
    void TakeNote(void const * pOwner, char const * sFile, int iLine) const;
    void ReturnNote(ComDebug_t * pNote) const;
    void Unchain(ComDebug_t * pNote) const;

    std::uint32_t m_dwComSignature = COM_SIGNATURE;
    mutable ComDebug_t * m_pDebugHead = nullptr;   // references held, the newest first
    mutable std::uint32_t iRefCount = 0;

    static ComDebug_t * m_pEmptyList;   // free notes
};

inline std::uint32_t ComAddRef(ComObject_c const * pObject, void const * pOwner, char const * sFile, int iLine)
{
    return pObject->AddRef(pOwner, sFile, iLine, pObject);
}

inline bool ComRelease(ComObject_c const * pObject, void const * pOwner, char const * sFile, int iLine)
{
    return pObject->Release(pOwner, sFile, iLine, pObject);
}
