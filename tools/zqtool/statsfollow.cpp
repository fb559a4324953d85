#include "tools/zqtool/statsfollow.h"

#include "platform/clock.h"
#include "platform/loopback.h"
#include "platform/process.h"
#include "tools/zqtool/http.h"

#include <csignal>
#include <cstdio>
#include <sstream>

namespace
{
    constexpr std::size_t MAX_BATCHES = 1000;           // kept for the page
    constexpr std::size_t MAX_TIMERS = 65536;           // of the tree: a program has fewer than a thousand
    constexpr std::size_t MAX_ANSWER_BYTES = 4 << 20;   // of timers in an answer of several batches
    constexpr int BATCHES_AT_ONCE = 8, TURN_MILLISECONDS = 100, LAST_ANSWER_SECONDS = 3;

    volatile std::sig_atomic_t g_bInterrupted = 0;

    void OnInterrupt(int)
    {
        g_bInterrupted = 1;
    }

    // One call of StatsFollow.
    class Follower_c
    {
    public:
        Follower_c(StatsFollow_t const & Follow, StatsFacts_t & Facts, StatsTree_c & Tree)
            : m_Follow(Follow)
            , m_Facts(Facts)
            , m_Tree(Tree)
            , m_Tail(Follow.sFile)
        {}

        bool Run();

    private:
        using Answer_t = std::shared_ptr<std::string const>;

        bool ReadSome();
        void Take(StatsBatch_t const & Batch);
        void StartAnew();
        void Complain(std::uint64_t nOffset, std::string const & sText);
        void ServeTheEnd();
        bool IsAtLimit() const
        {
            return m_Follow.nMaxFrames > 0 && (m_bRestSkipped || m_Tree.GetFrameCount() >= m_Follow.nMaxFrames);
        }
        Answer_t Answer(std::string_view sRequest);
        std::string AnswerTo(std::string const & sTarget);

        StatsFollow_t const & m_Follow;
        StatsFacts_t & m_Facts;
        StatsTree_c & m_Tree;
        StatsTail_c m_Tail;
        StatsPage_c m_Page;
        plat::LoopbackServer_c m_Server;
        int m_iRun = 1;
        bool m_bEnded = false;         // whether no further batch is read
        bool m_bAsked = false;         // whether a page asked for news
        bool m_bSentEnd = false;       // whether, after the end, the page that asked last has all frames
        bool m_bRestSkipped = false;   // whether the rest of the run is skipped
    };

    void Follower_c::Complain(std::uint64_t nOffset, std::string const & sText)
    {
        m_Facts.AddProblem(nOffset, sText);
    }

    void Follower_c::StartAnew()
    {
        ++m_iRun;
        m_Tree = StatsTree_c();
        m_Page = StatsPage_c();
        m_Facts.dProblems.clear();
        m_bRestSkipped = false;
    }

    void Follower_c::Take(StatsBatch_t const & Batch)
    {
        std::vector<int> const dNodes = m_Tree.Add(Batch, true);
        m_Page.Add(Batch, dNodes);
        if (m_Tree.GetFrames().size() > MAX_BATCHES * STATS_FRAMES)
        {
            m_Tree.ForgetBatch();
            m_Page.ForgetBatch();
        }
        if (m_Tree.GetNodes().size() > MAX_TIMERS && !m_bRestSkipped)
        {
            Complain(0, "the file has more than " + std::to_string(MAX_TIMERS) + " timers; the rest is not read");
            m_bRestSkipped = true;
        }
    }

    // Reads at most BATCHES_AT_ONCE batches. Returns false if there is nothing more to read now, or if the rest of the
    // run is skipped.
    bool Follower_c::ReadSome()
    {
        StatsBatch_t Batch;
        for (int i = 0; i < BATCHES_AT_ONCE && !IsAtLimit(); ++i)
        {
            StatsTail_e const eRead = m_Tail.Read(
                Batch, [this](std::uint64_t nOffset, std::string const & sText) { Complain(nOffset, sText); });
            if (eRead == StatsTail_e::Anew)
            {
                StartAnew();
                continue;
            }
            if (eRead != StatsTail_e::Batch || m_bRestSkipped)
            {
                m_bRestSkipped = m_bRestSkipped || eRead == StatsTail_e::Damaged;
                return false;
            }
            Take(Batch);
        }
        return true;
    }

    // Answers a target and returns the answer: the page for "/", and news for "/data?run=1&from=150". Refuses any
    // other. The page has no frame: it asks for all. A request for news also sets m_bAsked and updates m_bSentEnd.
    std::string Follower_c::AnswerTo(std::string const & sTarget)
    {
        int iRun = 0, iFrom = 0, nRead = 0;
        if (sTarget == "/")
        {
            std::ostringstream Stream;
            StatsPage_c().Write(Stream, m_Facts, StatsTree_c(), { .bLive = true });
            return HttpAnswer(HTTP_OK, "text/html", Stream.str());
        }
        if (std::sscanf(sTarget.c_str(), "/data?run=%9d&from=%9d%n", &iRun, &iFrom, &nRead) != 2
            || static_cast<std::size_t>(nRead) != sTarget.size())
        {
            return HttpAnswer(HTTP_NOT_FOUND, "text/plain", "There is only /.\n");
        }
        m_bAsked = true;
        std::string const sNews = m_Page.MakeNews(m_Facts, m_Tree,
            { .iFrom = iRun == m_iRun ? iFrom : 0, .nMaxBytes = MAX_ANSWER_BYTES, .bLive = !m_bEnded, .iRun = m_iRun });
        m_bSentEnd = m_bEnded && iRun == m_iRun && iFrom >= m_Tree.GetFrameCount();
        return HttpAnswer(HTTP_OK, "application/json", sNews);
    }

    // Answers a request, as AnswerTo does, and returns the answer. Returns null while the request is incomplete.
    // Refuses a request that is too long.
    Follower_c::Answer_t Follower_c::Answer(std::string_view sRequest)
    {
        if (!HttpIsComplete(sRequest))
        {
            return sRequest.size() < plat::LOOPBACK_MAX_REQUEST
                       ? nullptr
                       : std::make_shared<std::string const>(HttpAnswer(HTTP_TOO_LARGE, "text/plain", "Too long.\n"));
        }
        std::string sTarget;
        int const iStatus = HttpCheck(sRequest, m_Server.GetPort(), sTarget);
        return std::make_shared<std::string const>(
            iStatus == HTTP_OK ? AnswerTo(sTarget) : HttpAnswer(iStatus, "text/plain", "Refused.\n"));
    }

    // Lets a page that is open read the last frames, for at most LAST_ANSWER_SECONDS.
    void Follower_c::ServeTheEnd()
    {
        m_bEnded = true;
        std::int64_t const tEnd = plat::GoodClockTicks() + LAST_ANSWER_SECONDS * plat::GoodClockFrequency();
        while (m_bAsked && !m_bSentEnd && !g_bInterrupted && plat::GoodClockTicks() < tEnd)
        {
            m_Server.Serve(TURN_MILLISECONDS, [this](std::string_view sRequest) { return Answer(sRequest); });
        }
    }

    bool Follower_c::Run()
    {
        if (!m_Server.Open(m_Follow.iPort))
        {
            char szReason[256];
            plat::LastErrorText(szReason, sizeof szReason);
            std::string const sPort = m_Follow.iPort == 0 ? "any port" : "port " + std::to_string(m_Follow.iPort);
            std::fprintf(stderr, "zqtool: can't serve on %s: %s", sPort.c_str(), szReason);
            return false;
        }
        std::signal(SIGINT, OnInterrupt);
        std::printf("Open http://127.0.0.1:%i/ in a browser. Ctrl-C ends.\n", m_Server.GetPort());
        std::fflush(stdout);
        while (!g_bInterrupted && !IsAtLimit())
        {
            bool const bMore = ReadSome();
            m_Server.Serve(
                bMore ? 0 : TURN_MILLISECONDS, [this](std::string_view sRequest) { return Answer(sRequest); });
        }
        ServeTheEnd();
        return true;
    }
}

bool StatsFollow(StatsFollow_t const & Follow, StatsFacts_t & Facts, StatsTree_c & Tree)
{
    return Follower_c(Follow, Facts, Tree).Run();
}
