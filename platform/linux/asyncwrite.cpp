#include "platform/asyncwrite.h"

#include "platform/filewrite.h"
#include "platform/linux/forkdrop.h"
#include "platform/linux/openfile.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <linux/io_uring.h>
#include <new>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <type_traits>
#include <unistd.h>
#include <utility>

namespace plat
{
    namespace
    {
        // Many containers refuse the system's queue of requests. Old kernels have none. In both cases every write is a
        // plain one. Whatever the queue does not write is written plainly too. A refused, short or failed request
        // therefore has the result of a plain write.

        constexpr std::size_t MAX_REQUEST = 1u << 30;   // bytes; the kernel counts them in 31 bits

        bool g_bAllowed = true;

        // A queue with room for one request. Its only entry has the index 0, and so has the request.
        struct Queue_s
        {
            bool bOpen;
            bool bUnderWay;
            int iDescriptor;
            std::size_t nRings;       // bytes at pRings
            std::size_t nRequests;    // bytes at pRequest
            unsigned char * pRings;   // shared with the kernel
            io_uring_sqe * pRequest;
            std::uint32_t * pSubmitTail;
            std::uint32_t * pDoneHead;
            std::uint32_t * pDoneTail;
            std::uint32_t dwDoneMask;
            io_uring_cqe * pDone;
        };

        struct System_s
        {
            Queue_s Queue;
            ForkDrop_s Drop;
        };
        static_assert(std::is_trivial_v<System_s>);

        template <std::size_t N>
        System_s & SystemIn(unsigned char (&dBytes)[N])
        {
            static_assert(sizeof(System_s) <= N);
            return *std::launder(reinterpret_cast<System_s *>(dBytes));
        }

        template <std::size_t N>
        System_s const & SystemIn(unsigned char const (&dBytes)[N])
        {
            static_assert(sizeof(System_s) <= N);
            return *std::launder(reinterpret_cast<System_s const *>(dBytes));
        }

        template <typename T>
        T * Map(int iDescriptor, std::size_t nBytes, off_t nOffset)
        {
            void * const pMapped =
                mmap(nullptr, nBytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, iDescriptor, nOffset);
            return pMapped == MAP_FAILED ? nullptr : static_cast<T *>(pMapped);
        }

        std::uint32_t * WordAt(Queue_s const & Queue, std::uint32_t nOffset)
        {
            return reinterpret_cast<std::uint32_t *>(Queue.pRings + nOffset);
        }

        void CloseQueue(Queue_s & Queue)
        {
            if (Queue.pRings)
            {
                munmap(Queue.pRings, Queue.nRings);
            }
            if (Queue.pRequest)
            {
                munmap(Queue.pRequest, Queue.nRequests);
            }
            if (Queue.iDescriptor >= 0)
            {
                close(Queue.iDescriptor);
            }
            Queue = {};
        }

        bool MapQueue(Queue_s & Queue, io_uring_params const & Params)
        {
            std::size_t const nSubmit = Params.sq_off.array + Params.sq_entries * sizeof(std::uint32_t);
            std::size_t const nDone = Params.cq_off.cqes + Params.cq_entries * sizeof(io_uring_cqe);
            Queue.nRings = std::max(nSubmit, nDone);
            Queue.nRequests = Params.sq_entries * sizeof(io_uring_sqe);
            Queue.pRings = Map<unsigned char>(Queue.iDescriptor, Queue.nRings, IORING_OFF_SQ_RING);
            Queue.pRequest = Map<io_uring_sqe>(Queue.iDescriptor, Queue.nRequests, IORING_OFF_SQES);
            return Queue.pRings && Queue.pRequest && (Params.features & IORING_FEAT_SINGLE_MMAP) != 0;
        }

        // Opens the queue. On failure bOpen stays false.
        void OpenQueue(Queue_s & Queue)
        {
            io_uring_params Params{};
            Queue.iDescriptor = static_cast<int>(syscall(__NR_io_uring_setup, 1, &Params));
            if (Queue.iDescriptor < 0)
            {
                return;
            }
            Queue.bOpen = MapQueue(Queue, Params);
            if (!Queue.bOpen)
            {
                CloseQueue(Queue);
                return;
            }
            Queue.pSubmitTail = WordAt(Queue, Params.sq_off.tail);
            Queue.pDoneHead = WordAt(Queue, Params.cq_off.head);
            Queue.pDoneTail = WordAt(Queue, Params.cq_off.tail);
            Queue.dwDoneMask = *WordAt(Queue, Params.cq_off.ring_mask);
            Queue.pDone = reinterpret_cast<io_uring_cqe *>(Queue.pRings + Params.cq_off.cqes);
            *WordAt(Queue, Params.sq_off.array) = 0;
        }

        // Submits nSubmit requests and waits for nWaitFor results. Returns how many it submitted, or -1 with errno.
        long Enter(Queue_s const & Queue, unsigned nSubmit, unsigned nWaitFor)
        {
            unsigned const iFlags = nWaitFor > 0 ? IORING_ENTER_GETEVENTS : 0u;
            return syscall(
                __NR_io_uring_enter, Queue.iDescriptor, nSubmit, nWaitFor, iFlags, nullptr, std::size_t{ 0 });
        }

        // Passes a write, or its first MAX_REQUEST bytes, to the kernel's own thread. Returns false if the kernel does
        // not accept it.
        bool Submit(Queue_s & Queue, int iFile, std::uint64_t nOffset, void const * pData, std::size_t nBytes)
        {
            io_uring_sqe Request{};
            Request.opcode = IORING_OP_WRITE;
            Request.flags = IOSQE_ASYNC;   // without it a write into the page cache is done right here
            Request.fd = iFile;
            Request.off = nOffset;
            Request.addr = reinterpret_cast<std::uintptr_t>(pData);
            Request.len = static_cast<std::uint32_t>(std::min(nBytes, MAX_REQUEST));
            *Queue.pRequest = Request;
            std::atomic_ref<std::uint32_t> Tail(*Queue.pSubmitTail);
            std::uint32_t const nTail = Tail.load(std::memory_order_relaxed);
            Tail.store(nTail + 1, std::memory_order_release);
            Queue.bUnderWay = Enter(Queue, 1, 0) == 1;
            if (!Queue.bUnderWay)
            {
                Tail.store(nTail, std::memory_order_release);
            }
            return Queue.bUnderWay;
        }

        bool IsDone(Queue_s const & Queue)
        {
            return std::atomic_ref(*Queue.pDoneTail).load(std::memory_order_acquire) != *Queue.pDoneHead;
        }

        // Waits for the request and returns the number of bytes that it wrote. Returns 0 if the request failed. Closes
        // the queue and returns 0 if the system can't wait, for instance because others closed the queue's descriptor.
        std::size_t Await(Queue_s & Queue)
        {
            while (!IsDone(Queue))
            {
                bool const bWaited = Enter(Queue, 0, 1) >= 0;
                if (!bWaited && errno != EINTR && errno != EAGAIN && errno != EBUSY)
                {
                    Queue.iDescriptor = -1;   // it may now belong to another file
                    CloseQueue(Queue);
                    return 0;
                }
            }
            std::uint32_t const nHead = *Queue.pDoneHead;
            int const iResult = Queue.pDone[nHead & Queue.dwDoneMask].res;
            std::atomic_ref(*Queue.pDoneHead).store(nHead + 1, std::memory_order_release);
            Queue.bUnderWay = false;
            return iResult > 0 ? static_cast<std::size_t>(iResult) : 0;
        }
    }

    void AsyncFile_c::AllowConcurrent(bool bAllow)
    {
        g_bAllowed = bAllow;
    }

    bool AsyncFile_c::Create(char const * szPath)
    {
        Close();
        m_hFile = FileCreate(szPath);
        if (m_hFile)
        {
            ForkDropAdd(
                SystemIn(m_dSystem).Drop, [](void * pFile) { static_cast<AsyncFile_c *>(pFile)->Abandon(); }, this);
        }
        if (m_hFile && g_bAllowed)
        {
            OpenQueue(SystemIn(m_dSystem).Queue);
        }
        return m_hFile != nullptr;
    }

    void AsyncFile_c::Write(std::uint64_t nOffset, void const * pData, std::size_t nBytes)
    {
        m_nOffset = nOffset;
        m_pData = static_cast<char const *>(pData);
        m_nLeft = nBytes;
        Queue_s & Queue = SystemIn(m_dSystem).Queue;
        if (!Queue.bOpen || !Submit(Queue, DescriptorOf(m_hFile), nOffset, pData, nBytes))
        {
            m_iError = WriteRest() ? 0 : errno;
        }
    }

    bool AsyncFile_c::IsBusy() const
    {
        Queue_s const & Queue = SystemIn(m_dSystem).Queue;
        return Queue.bUnderWay && !IsDone(Queue);
    }

    bool AsyncFile_c::Finish()
    {
        Queue_s & Queue = SystemIn(m_dSystem).Queue;
        if (Queue.bUnderWay)
        {
            std::size_t const nWritten = Await(Queue);
            m_nOffset += nWritten;
            m_pData += nWritten;
            m_nLeft -= nWritten;
            m_iError = m_nLeft == 0 || WriteRest() ? 0 : errno;
        }
        errno = m_iError;
        return std::exchange(m_iError, 0) == 0;
    }

    bool AsyncFile_c::WriteRest()
    {
        return FileWriteAt(m_hFile, m_nOffset, m_pData, m_nLeft);
    }

    // Closes the file and the queue in a forked child. The queue is the parent's, so the child waits for none of the
    // parent's writes.
    void AsyncFile_c::Abandon()
    {
        Queue_s & Queue = SystemIn(m_dSystem).Queue;
        if (Queue.bOpen)
        {
            CloseQueue(Queue);
        }
        FileClose(std::exchange(m_hFile, nullptr));
        m_iError = 0;
    }

    bool AsyncFile_c::Close()
    {
        if (!m_hFile)
        {
            return true;
        }
        bool const bWhole = Finish();
        int const iError = errno;
        ForkDropRemove(SystemIn(m_dSystem).Drop);
        if (SystemIn(m_dSystem).Queue.bOpen)
        {
            CloseQueue(SystemIn(m_dSystem).Queue);
        }
        bool const bFinished = FileFinish(std::exchange(m_hFile, nullptr));
        errno = bWhole ? errno : iError;
        return bFinished && bWhole;
    }
}
