// loopback.h: answers short requests of programs on this machine.
//
// The server listens on the loopback address 127.0.0.1, which other machines can't reach. A slow client does not delay
// the others. A connection carries one request and one answer.
//
// There are at most 16 connections. A further one replaces the oldest. Serve counts whole seconds, so each time below
// may be up to a second shorter. It ends a connection in these cases:
// - the client has closed it, or the system reports an error.
// - its request has LOOPBACK_MAX_REQUEST bytes and is not complete.
// - its request is not complete after 10 seconds.
// - its answer was not sent 60 seconds after the request was complete.
// - the client has not closed it 2 seconds after the answer was sent.
//
// Threads: one thread at a time.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace plat
{
    inline constexpr std::size_t LOOPBACK_MAX_REQUEST = 8192;   // bytes

    /// Function that answers a request. It receives all that a client sent so far, at most LOOPBACK_MAX_REQUEST bytes.
    /// It returns null if the request is not complete, and then is called again once there is more. At the limit null
    /// ends the connection.
    using LoopbackAnswer_t = std::function<std::shared_ptr<std::string const>(std::string_view sRequest)>;

    /// A listening socket and its connections. The destructor closes them.
    class LoopbackServer_c
    {
    public:
        LoopbackServer_c();
        ~LoopbackServer_c();
        LoopbackServer_c(LoopbackServer_c const &) = delete;
        LoopbackServer_c & operator=(LoopbackServer_c const &) = delete;

        /// Listens on a port; 0 picks a free one. Returns false on failure, and LastErrorText (process.h) has the
        /// reason.
        bool Open(int iPort);

        /// Returns the port. Requires that Open succeeded.
        int GetPort() const;

        /// Waits up to nMilliseconds until a client connects, sends or reads, then does what needs no waiting. May
        /// return earlier.
        void Serve(int nMilliseconds, LoopbackAnswer_t const & fnAnswer);

    private:
        void Accept();

        struct State_s;
        std::unique_ptr<State_s> m_pState;
    };
}
