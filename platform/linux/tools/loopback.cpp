#include "platform/loopback.h"

#include "platform/clock.h"
#include "platform/linux/descriptor.h"

#include <algorithm>
#include <arpa/inet.h>
#include <list>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <vector>

namespace plat
{
    namespace
    {
        constexpr std::size_t MAX_CONNECTIONS = 16;
        constexpr std::size_t RECEIVE_SIZE = 2048;   // bytes received at once
        constexpr std::int64_t REQUEST_SECONDS = 10, ANSWER_SECONDS = 60, CLOSE_SECONDS = 2;

        std::int64_t Seconds()
        {
            return GoodClockTicks() / GoodClockFrequency();
        }

        bool MustWait()
        {
            return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
        }

        // A connection to a client, which sends its request, reads the answer, and closes. The server waits up to
        // CLOSE_SECONDS for the client to close, so that a client that still sends does not lose the answer.
        class Connection_c
        {
        public:
            explicit Connection_c(int iDescriptor)
                : m_Socket(iDescriptor)
                , m_tEnd(Seconds() + REQUEST_SECONDS)
            {}

            pollfd GetInterest() const
            {
                return { m_Socket.Get(), static_cast<short>(IsAnswering() ? POLLOUT : POLLIN), 0 };
            }

            bool IsLate() const { return Seconds() >= m_tEnd; }

            // Does what the socket is ready for. Returns false if the connection is over.
            bool Advance(LoopbackAnswer_t const & fnAnswer)
            {
                return IsAnswering() ? Send() : m_pAnswer ? Drain() : Receive(fnAnswer);
            }

        private:
            bool IsAnswering() const { return m_pAnswer && m_nSent < m_pAnswer->size(); }

            bool Receive(LoopbackAnswer_t const & fnAnswer)
            {
                char dBytes[RECEIVE_SIZE];
                ssize_t const nRead = recv(m_Socket.Get(), dBytes, sizeof dBytes, 0);
                if (nRead <= 0)
                {
                    return nRead < 0 && MustWait();
                }
                m_sRequest.append(dBytes, static_cast<std::size_t>(nRead));
                bool const bFull = m_sRequest.size() >= LOOPBACK_MAX_REQUEST;
                m_pAnswer = fnAnswer(std::string_view(m_sRequest).substr(0, LOOPBACK_MAX_REQUEST));
                if (!m_pAnswer)
                {
                    return !bFull;
                }
                m_tEnd = Seconds() + ANSWER_SECONDS;
                return Send();
            }

            bool Send()
            {
                ssize_t const nSent =
                    send(m_Socket.Get(), m_pAnswer->data() + m_nSent, m_pAnswer->size() - m_nSent, MSG_NOSIGNAL);
                if (nSent < 0)
                {
                    return MustWait();
                }
                m_nSent += static_cast<std::size_t>(nSent);
                if (!IsAnswering())
                {
                    shutdown(m_Socket.Get(), SHUT_WR);
                    m_tEnd = Seconds() + CLOSE_SECONDS;
                }
                return true;
            }

            bool Drain()
            {
                char dBytes[RECEIVE_SIZE];
                ssize_t const nRead = recv(m_Socket.Get(), dBytes, sizeof dBytes, 0);
                return nRead > 0 || (nRead < 0 && MustWait());
            }

            Descriptor_c m_Socket;
            std::int64_t m_tEnd;   // in seconds of the good clock
            std::string m_sRequest;
            std::shared_ptr<std::string const> m_pAnswer;   // null until the request is complete
            std::size_t m_nSent = 0;
        };
    }

    struct LoopbackServer_c::State_s
    {
        Descriptor_c Listener;
        int iPort = 0;
        std::list<Connection_c> dConnections;   // the oldest first
    };

    void LoopbackServer_c::Accept()
    {
        std::list<Connection_c> & dConnections = m_pState->dConnections;
        for (std::size_t i = 0; i < MAX_CONNECTIONS; ++i)
        {
            int const iSocket = accept4(m_pState->Listener.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
            if (iSocket < 0)
            {
                return;
            }
            if (dConnections.size() >= MAX_CONNECTIONS)
            {
                dConnections.pop_front();
            }
            dConnections.emplace_back(iSocket);
        }
    }

    LoopbackServer_c::LoopbackServer_c()
        : m_pState(std::make_unique<State_s>())
    {}
    LoopbackServer_c::~LoopbackServer_c() = default;

    bool LoopbackServer_c::Open(int iPort)
    {
        Descriptor_c & Listener = m_pState->Listener;
        Listener.Reset(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        int const iReuse = 1;
        sockaddr_in Address = {};
        Address.sin_family = AF_INET;
        Address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        Address.sin_port = htons(static_cast<std::uint16_t>(iPort));
        auto * const pAddress = reinterpret_cast<sockaddr *>(&Address);
        socklen_t nSize = sizeof Address;
        bool const bOpen = Listener.IsOpen()
                           && setsockopt(Listener.Get(), SOL_SOCKET, SO_REUSEADDR, &iReuse, sizeof iReuse) == 0
                           && bind(Listener.Get(), pAddress, nSize) == 0
                           && listen(Listener.Get(), static_cast<int>(MAX_CONNECTIONS)) == 0
                           && getsockname(Listener.Get(), pAddress, &nSize) == 0;
        m_pState->iPort = bOpen ? ntohs(Address.sin_port) : 0;
        if (!bOpen)
        {
            Listener.Reset(-1);
        }
        return bOpen;
    }

    int LoopbackServer_c::GetPort() const
    {
        return m_pState->iPort;
    }

    void LoopbackServer_c::Serve(int nMilliseconds, LoopbackAnswer_t const & fnAnswer)
    {
        std::list<Connection_c> & dConnections = m_pState->dConnections;
        std::vector<pollfd> dInterests = { { m_pState->Listener.Get(), POLLIN, 0 } };
        std::transform(dConnections.begin(), dConnections.end(), std::back_inserter(dInterests),
            [](Connection_c const & Connection) { return Connection.GetInterest(); });
        if (poll(dInterests.data(), dInterests.size(), nMilliseconds) < 0)
        {
            return;   // a signal, or no memory
        }
        auto itInterest = dInterests.begin() + 1;
        dConnections.remove_if([&](Connection_c & Connection)
            { return (itInterest++->revents != 0 && !Connection.Advance(fnAnswer)) || Connection.IsLate(); });
        if (dInterests[0].revents != 0)
        {
            Accept();
        }
    }
}
