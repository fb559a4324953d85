// ccom.h: base of shared objects that count their references and know who holds them.
//
// An object starts without references. Each AddRef notes the holder and the source line. The Release that removes the
// last reference disposes of the object. ComDebug, GetOwners and the complaint about an object that is deleted too
// early list the references that are held.
//
// Ownership: the references own the object together. Holders are only noted, and may be any address.
// Threads: no lock. Requires that no two calls run at the same time in the process, also for different objects.
// Cost: AddRef takes constant time, Release a walk over the object's references. Nothing allocates: all notes of the
// process come from one static pool of COM_REFERENCES, whose memory is touched as it is used.
// Failure: wrong use asserts. Each declaration states what the function does if the developer continues.
//
//     class Texture_c : public ComObject_c
//     {};
//     Texture_c * const pTexture = ZQ_NEW Texture_c;
//     char Menu = 0, Game = 0;   // holders; as a rule `this`
//     COM_ADDREF(pTexture, &Menu);
//     {
//         ComReference_T const Reference(pTexture, &Game);
//         Reference->ComDebug();   // logs both
//     }
//     bool const bDeleted = COM_RELEASE(pTexture, &Menu);   // true
#pragma once

#include "zqcore/cconfig.h"

/// Signature of every live object.
inline constexpr std::uint32_t COM_SIGNATURE = 0xC0C0C0C0;

/// Maximum number of references that have a note at a time. A further one asserts, and is counted without a note.
inline constexpr int COM_REFERENCES = 200000;

/// Note of one reference that is held.
struct ComDebug_t
{
    ComDebug_t * pNext;    // next older note of the object, or null
    ComDebug_t * pPrev;    // next newer one, or null
    void const * pOwner;   // holder
    char const * sFile;    // source of the AddRef, kept as a pointer
    int iLine;             // line of the AddRef
};

/// Base of shared objects.
class ZQ_API ComObject_c
{
public:
    ComObject_c() = default;
    ComObject_c(ComObject_c const &) = delete;
    ComObject_c & operator=(ComObject_c const &) = delete;

    /// Adds a reference that pOwner holds and returns the count before. Keeps sFile as a pointer. pObject is the object
    /// again: a difference shows a call through a wrong pointer. Asserts that pObject is this object, and that pOwner
    /// is not null. If the developer continues, counts the reference too, for a null pOwner without a note.
    std::uint32_t AddRef(void const * pOwner, char const * sFile, int iLine, void const * pObject) const;

    /// Removes pOwner's newest reference, or one without a note if pOwner is null. Returns true if it was the last one:
    /// the object is then disposed of. Does not use sFile and iLine. Asserts that pOwner, unless it is null, holds a
    /// reference. If the developer continues, lowers the count too. Asserts the following, and returns false and
    /// changes nothing otherwise:
    /// - pObject is this object.
    /// - It is a live object. An address that is not readable fails the assertion and is not read, unless an object on
    ///   its page still had a reference with a note when the page went.
    /// - It has references.
    bool Release(void const * pOwner, char const * sFile, int iLine, void const * pObject) const;

    /// Logs the references that have a note, the newest first, or that there are none.
    void ComDebug();

    /// Copies up to iMax notes of references to pOut, the newest first, and returns how many it copied. If there are
    /// more, reports that on the debugger's output.
    int GetOwners(ComDebug_t * const pOut, int iMax);

    /// Returns how many references can still have a note in this process. Walks the free notes that were used before.
    static int GetFreeReferences();

protected:
    /// Releases all notes. Asserts that no references are left, and calls ComDebug before that if some are.
    virtual ~ComObject_c();

    /// Deletes the object. Release calls it when no references are left. A subclass may keep the object instead.
    virtual void Dispose() const;

private:
    ZQ_COLD std::uint32_t AddRefSlow(void const * pOwner, char const * sFile, int iLine, void const * pObject) const;
    ZQ_COLD static bool ReleaseSlow(ComObject_c const * pThis, void const * pOwner, void const * pObject);
    static bool IsSound(ComObject_c const * pThis, void const * pObject);
    static bool CanRelease(ComObject_c const * pThis, void const * pObject);
    ComDebug_t * FindNote(void const * pOwner) const;
    bool LowerCount() const;
    void AddNote(void const * pOwner, char const * sFile, int iLine) const;
    void ReturnNote(ComDebug_t * pNote) const;
    void FreeNote(ComDebug_t * pNote) const;

    std::uint32_t m_dwComSignature = COM_SIGNATURE;
    mutable ComDebug_t * m_pDebugHead = nullptr;   // notes of this object, the newest first
    mutable std::uint32_t iRefCount = 0;

    static ComDebug_t * m_pEmptyList;   // free notes
};

/// Call AddRef and Release with the place in the source, as in `COM_ADDREF(pObject, this)`, and return their results.
/// Require that pObject is not null.
#define COM_ADDREF(pObject, pOwner) ComAddRef((pObject), (pOwner), __FILE__, __LINE__)
#define COM_RELEASE(pObject, pOwner) ComRelease((pObject), (pOwner), __FILE__, __LINE__)

/// Call AddRef and Release, and return their results. Require that pObject is not null. The macros call them.
inline std::uint32_t ComAddRef(ComObject_c const * pObject, void const * pOwner, char const * sFile, int iLine)
{
    return pObject->AddRef(pOwner, sFile, iLine, pObject);
}

inline bool ComRelease(ComObject_c const * pObject, void const * pOwner, char const * sFile, int iLine)
{
    return pObject->Release(pOwner, sFile, iLine, pObject);
}

/// Reference of a holder to an object, for a scope or as a member of the holder. Calls AddRef with the place in the
/// source where it is made, and Release at its end. A null object has no reference.
template <typename T>
class ComReference_T
{
public:
    /// Adds the reference. Keeps sFile as a pointer.
    ComReference_T(
        T * pObject, void const * pOwner, char const * sFile = __builtin_FILE(), int iLine = __builtin_LINE())
        : m_pObject(pObject)
        , m_pOwner(pOwner)
        , m_szFile(sFile)
        , m_iLine(iLine)
    {
        if (m_pObject)
        {
            ComAddRef(m_pObject, m_pOwner, m_szFile, m_iLine);
        }
    }
    ~ComReference_T()
    {
        if (m_pObject)
        {
            ComRelease(m_pObject, m_pOwner, m_szFile, m_iLine);
        }
    }
    ComReference_T(ComReference_T const &) = delete;
    ComReference_T & operator=(ComReference_T const &) = delete;

    /// Return the object. operator-> requires that it is not null.
    T * Get() const { return m_pObject; }
    T * operator->() const { return m_pObject; }

private:
    T * const m_pObject;
    void const * const m_pOwner;
    char const * const m_szFile;
    int const m_iLine;
};
