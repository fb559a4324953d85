// ccallback.h: lists of functions that are called on an event, and the events that the library shares with hosts.
//
// A Callbacker_T<T> is an event. Any layer adds functions to it, and the owner of the event fires it with a payload.
// - The function added last is called first.
// - An exclusive entry hides those that were added before it.
// - A receiver that changes the list ends the firing.
// - Firing a list inside its own firing does nothing, unless it is forced. When a forced one ends, the list does not
//   count as firing: the rest of the outer firing can fire it again without force.
// - An exception of a receiver ends the firing and reaches the caller of Fire.
//
// Ownership: a list owns its nodes. It only points to the functions.
// Threads: lists have no lock. Requires that one thread alone changes and fires a list. The library fires four events
// on any thread, one receiver at a time (cdebug.h, cfile.h): g_WarningsCallbacker, g_ExecutionCallbacker,
// g_FileOpenCallbacker and g_FileReadErrorCallbacker. Requires that these change only at start-up and shutdown. A crash
// report fires g_ExecutionCallbacker without waiting for other receivers.
// Cost: adding allocates a node in the category Noise. Firing allocates nothing.
// Failure: adding to a list whose newest entry is exclusive asserts. No other call fails.
//
//     Callbacker_T<int> OnScore;
//     CallbackScope_T const Receiver(OnScore, [](int nPoints) { Log("%i points", nPoints); });
//     OnScore.Fire(10, false);
#pragma once

#include "zqcore/cdebug.h"
#include "zqcore/clink.h"
#include "zqcore/cmemory.h"

#include <type_traits>

/// A message of the window system, as the events below carry it. The library passes it on unread. The layers above
/// define the fields.
struct MessageData_s
{
    void * hWindow = nullptr;         // handle of the window
    std::uint32_t iMessage = 0;       // number of the message
    std::uintptr_t iParameter0 = 0;   // first parameter of the message
    std::intptr_t iParameter1 = 0;    // second one
    std::intptr_t iResult = 0;        // result of the message
};

/// Type of the functions of an event. T is the payload, or void for none.
template <typename T>
struct CallbackFunction_T
{
    using Function_t = void (*)(T);   // pointer to such a function; its result is void
};

template <>
struct CallbackFunction_T<void>
{
    using Function_t = void (*)();
};

/// The list of an event's functions.
template <typename T>
class CallbackerBase_T
{
public:
    using Function_t = typename CallbackFunction_T<T>::Function_t;   // pointer to a receiver

    constexpr CallbackerBase_T() = default;
    virtual ~CallbackerBase_T() { Reset(); }
    CallbackerBase_T(CallbackerBase_T const &) = delete;
    CallbackerBase_T & operator=(CallbackerBase_T const &) = delete;

    /// Adds a function, which is called before the others. With bExclusive it is the only one called. Asserts that the
    /// entry added last is not exclusive, and adds the function in any case.
    void Add(Function_t fn, bool bExclusive);

    /// Removes the entry of this function that was added last, if there is one. Ends a firing of the list in any case.
    void Remove(Function_t fn);

    /// Removes all entries.
    void Reset();

    /// Ends a firing that a jump has left: the list no longer counts as firing. Requires that none of its firings
    /// continues.
    void EndFiring() { m_bFiring = false; }

    /// Returns whether the list counts as firing.
    bool IsFiring() const { return m_bFiring; }

    /// Returns whether the list has no entry.
    bool IsEmpty() const { return pHead == nullptr; }

    /// Calls the functions with the payload. Without bForce, does nothing while the list counts as firing.
    template <typename U = T>
    void Fire(std::type_identity_t<U> Payload, bool bForce) requires(!std::is_void_v<U>)
    {
        Walk(bForce, Payload);
    }

    /// Calls the functions of an event without payload. bForce has the same effect as above.
    template <typename U = T>
    void Fire(bool bForce) requires std::is_void_v<U>
    {
        Walk(bForce);
    }

private:
    struct Entry_s
    {
        Function_t fn;
        bool m_bExclusive;
    };

    /// Scope in which the list is firing.
    struct FiringScope_c
    {
        CallbackerBase_T & m_List;
        bool const m_bChangedBefore;   // whether the list was changed before this firing, for the outer one

        explicit FiringScope_c(CallbackerBase_T & List)
            : m_List(List)
            , m_bChangedBefore(List.m_bChanged)
        {
            m_List.m_bChanged = false;
            m_List.m_bFiring = true;
        }
        ~FiringScope_c()
        {
            m_List.m_bChanged = m_List.m_bChanged || m_bChangedBefore;
            m_List.m_bFiring = false;
        }
        FiringScope_c(FiringScope_c const &) = delete;
        FiringScope_c & operator=(FiringScope_c const &) = delete;
    };

    template <typename... ARGS>
    void Walk(bool bForce, ARGS... Args);

    Link_T<Entry_s> * pHead = nullptr;   // the entry added last
    bool m_bChanged = false;             // whether the list was changed since this firing began
    bool m_bFiring = false;              // whether a firing runs; false for its rest after a forced one inside it
};

/// An event.
template <typename T>
class Callbacker_T : public CallbackerBase_T<T>
{};

/// Receiver of an event for a scope or as a member of an object: calls Add, and Remove at its end. Requires that the
/// event exists until then.
template <typename T>
class CallbackScope_T
{
public:
    using Function_t = typename CallbackerBase_T<T>::Function_t;   // pointer to a receiver

    explicit CallbackScope_T(CallbackerBase_T<T> & Event, Function_t fn, bool bExclusive = false)
        : m_Event(Event)
        , m_fn(fn)
    {
        m_Event.Add(m_fn, bExclusive);
    }
    ~CallbackScope_T() { m_Event.Remove(m_fn); }
    CallbackScope_T(CallbackScope_T const &) = delete;
    CallbackScope_T & operator=(CallbackScope_T const &) = delete;

private:
    CallbackerBase_T<T> & m_Event;
    Function_t const m_fn;
};

/// The shared events. The application alone fires those without a remark, and defines what their payload means.
extern ZQ_API Callbacker_T<bool>
    g_ExecutionCallbacker;   // false: stops for a dialog or a crash report; true: continues
extern ZQ_API Callbacker_T<int> g_CommandCallbacker;
extern ZQ_API Callbacker_T<void> g_LoadingCallbacker;
extern ZQ_API Callbacker_T<void> g_RenderCallbacker;
extern ZQ_API Callbacker_T<bool> g_ActiveCallbacker;
extern ZQ_API Callbacker_T<void> g_SizeCallbacker;
extern ZQ_API Callbacker_T<void> g_IdleCallbacker;
extern ZQ_API Callbacker_T<int> g_InitMenuCallbacker;
extern ZQ_API Callbacker_T<MessageData_s> g_FullscreenCallbacker;
extern ZQ_API Callbacker_T<MessageData_s> g_MouseCallbacker;
extern ZQ_API Callbacker_T<MessageData_s> g_KeyboardCallbacker;
extern ZQ_API Callbacker_T<MessageData_s> g_JoystickCallbacker;
extern ZQ_API Callbacker_T<char> g_CharCallbacker;
extern ZQ_API Callbacker_T<MessageData_s> g_ApplicationMessages;      // by the application; ccryptrnd.h receives
extern ZQ_API Callbacker_T<char const *> g_FileReadErrorCallbacker;   // a file could not be read; its key
extern ZQ_API Callbacker_T<MessageData_s> g_NetworkCallbacker;
extern ZQ_API Callbacker_T<bool> g_FullscreenSwitchCallbacker;
extern ZQ_API Callbacker_T<char const *> g_FileTrackChangesCallbacker;   // a known file changed; bare name; forced
extern ZQ_API Callbacker_T<char const *> g_AddSubfolderCallbacker;   // a folder is about to be scanned; path; forced
extern ZQ_API Callbacker_T<char const *> g_ResourceLoadCallbacker;   // ResourceLoadReportCall; its text
extern ZQ_API Callbacker_T<char const *> g_WarningsCallbacker;       // Warning or Achtung; its text
extern ZQ_API Callbacker_T<char const *> g_FileOpenCallbacker;       // an open of a file, see g_bCollectResource; path

template <typename T>
void CallbackerBase_T<T>::Add(Function_t fn, bool bExclusive)
{
    MemCategoryScope_c const Scope(mem::Noise);
    m_bChanged = true;
    ZQ_ASSERT_TEXT(!pHead || !pHead->Get().m_bExclusive, "!pHead || !pHead->Get().m_bExclusive");
    pHead = (ZQ_NEW Link_T<Entry_s>(Entry_s{ fn, bExclusive }))->Link(pHead);
}

template <typename T>
void CallbackerBase_T<T>::Remove(Function_t fn)
{
    m_bChanged = true;
    for (Link_T<Entry_s> * pNode = pHead; pNode; pNode = pNode->pNext)
    {
        if (pNode->Get().fn == fn)
        {
            pHead = pNode->Unlink(pHead);
            delete pNode;
            return;
        }
    }
}

template <typename T>
void CallbackerBase_T<T>::Reset()
{
    if (pHead)
    {
        LinkFreeAll(pHead);
        pHead = nullptr;
        m_bChanged = true;
    }
}

template <typename T>
template <typename... ARGS>
void CallbackerBase_T<T>::Walk(bool bForce, ARGS... Args)
{
    if (m_bFiring && !bForce)
    {
        return;
    }
    FiringScope_c const Firing(*this);
    for (Link_T<Entry_s> * pNode = pHead; pNode; pNode = pNode->pNext)
    {
        bool const bExclusive = pNode->Get().m_bExclusive;
        pNode->Get().fn(Args...);
        if (m_bChanged || bExclusive)   // after a change the node may be gone
        {
            break;
        }
    }
}
