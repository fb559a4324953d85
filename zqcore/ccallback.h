// ccallback.h: event lists, and the events that the library shares with the layers above.
//
// A Callbacker_T<T> is an event: any layer adds plain functions, and the owner of the event fires it with a payload.
// The function added last is called first. An exclusive entry hides all others. A callback that adds or removes
// anything ends the firing at once, and firing the same list inside a firing does nothing unless it is forced. An
// exception of a callback ends the firing and passes through to whoever fired. Lists have no lock: adding and removing
// belong to start-up, shutdown and the thread that fires. The events that the library fires on any thread (those of
// complaints and of files) have locks beside them, so that their receivers run one thread at a time (cdebug.h, cfile.h).
#pragma once

#include "zqcore/cdebug.h"
#include "zqcore/clink.h"
#include "zqcore/cmemory.h"

#include <type_traits>

/// A message of the window system on its way through g_ApplicationMessages and its kin. The library passes it on and
/// reads nothing of it; what the fields hold is the layers' own affair.
struct MessageData_s
{
    void * hWindow = nullptr;
    std::uint32_t iMessage = 0;
    std::uintptr_t iParameter0 = 0;
    std::intptr_t iParameter1 = 0;
    std::intptr_t iResult = 0;
};

template <typename T>
struct CallbackFunction_T
{
    using Type = void (*)(T);
};

template <>
struct CallbackFunction_T<void>
{
    using Type = void (*)();
};

template <typename T>
class CallbackerBase_T
{
public:
    using Function_t = typename CallbackFunction_T<T>::Type;

    constexpr CallbackerBase_T() = default;
    virtual ~CallbackerBase_T() { Reset(); }
    CallbackerBase_T(CallbackerBase_T const &) = delete;
    CallbackerBase_T & operator=(CallbackerBase_T const &) = delete;

    /// Adds a function ahead of the others. Nothing may be added behind an exclusive entry.
    void Add(Function_t fn, bool bExclusive);

    /// Removes the entry of this function that was added last, if there is one.
    void Remove(Function_t fn);

    /// Removes all entries.
    void Reset();

    bool IsEmpty() const { return pHead == nullptr; }

    /// Calls the functions with the payload. Inside a firing of this list it does nothing unless forced.
    template <typename U = T>
    void Fire(std::type_identity_t<U> tData, bool bForce) requires(!std::is_void_v<U>)
    {
        Walk(bForce, tData);
    }

    /// The same for an event without payload.
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

    // Marks the list as firing for a scope.
    struct Firing_s
    {
        CallbackerBase_T & List;
        bool const bChangedBefore;   // inside a forced firing: known to the outer one, which must end too

        explicit Firing_s(CallbackerBase_T & l)
            : List(l)
            , bChangedBefore(l.m_bChanged)
        {
            List.m_bChanged = false;
            List.m_bFiring = true;
        }
        ~Firing_s()
        {
            List.m_bChanged = List.m_bChanged || bChangedBefore;
            List.m_bFiring = false;
        }
        Firing_s & operator=(Firing_s &&) = delete;
    };

    template <typename... ARGS>
    void Walk(bool bForce, ARGS... Args);

    Link_T<Entry_s> * pHead = nullptr;   // last added first
    bool m_bChanged = false;             // since the present firing began
    bool m_bFiring = false;
};

template <typename T>
class Callbacker_T : public CallbackerBase_T<T>
{};

extern ZQ_API Callbacker_T<bool> g_ExecutionCallbacker;   // false: stopped for a dialog; true: goes on
extern ZQ_API Callbacker_T<int> g_CommandCallbacker;      // fired by the application, as all without a remark
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
extern ZQ_API Callbacker_T<MessageData_s> g_ApplicationMessages;      // the entropy collector listens
extern ZQ_API Callbacker_T<char const *> g_FileReadErrorCallbacker;   // a file's read failed; its key
extern ZQ_API Callbacker_T<MessageData_s> g_NetworkCallbacker;
extern ZQ_API Callbacker_T<bool> g_FullscreenSwitchCallbacker;
extern ZQ_API Callbacker_T<char const *> g_FileTrackChangesCallbacker;
extern ZQ_API Callbacker_T<char const *> g_AddSubfolderCallbacker;   // a folder is about to be scanned; forced
extern ZQ_API Callbacker_T<char const *> g_ResourceLoadCallbacker;   // ResourceLoadReportCall
extern ZQ_API Callbacker_T<char const *> g_WarningsCallbacker;       // the text of a Warning or Achtung
extern ZQ_API Callbacker_T<char const *> g_FileOpenCallbacker;       // a file opened, with g_bCollectResource; location

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
    Firing_s const Firing(*this);
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
