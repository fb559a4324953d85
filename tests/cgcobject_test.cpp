#include "zqcore/cgcobject.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace
{
    using Tessel::GcObj;
    using Tessel::GcRef_c;

    std::string g_sDeleted;
    int g_nAlive = 0;

    class Node_c : public GcObj
    {
    public:
        explicit Node_c(char cName = ' ')
            : m_cName(cName)
        {
            ++g_nAlive;
        }

        ~Node_c() override
        {
            if (m_fnEnd)
            {
                m_fnEnd();
            }
            g_sDeleted += std::string(1, m_cName) + (m_First.Get() || m_Second.Get() ? "!" : "");
            --g_nAlive;
        }

        GcRef_c m_First{ this };
        GcRef_c m_Second{ this };
        std::function<void()> m_fnEnd;

    private:
        char const m_cName;
    };

    class GarbageCollection : public testing::Test
    {
    protected:
        GarbageCollection() { g_sDeleted.clear(); }

        // Collects and returns what it deletes, in order. A '!' follows an object that sees another in its destructor.
        static std::string Collect()
        {
            g_sDeleted.clear();
            GcObj::Collect();
            return g_sDeleted;
        }

        GcRef_c m_Root{ &GcObj::Root() };
    };
}

TEST_F(GarbageCollection, DeletesWhatTheRootDoesNotReachTheOldestFirst)
{
    auto *const pA = new Node_c('a'), *const pB = new Node_c('b'), *const pC = new Node_c('c');
    auto *const pD = new Node_c('d'), *const pE = new Node_c('e');
    m_Root.Set(pA);
    pA->m_First.Set(pB);
    pB->m_First.Set(pA);
    pB->m_Second.Set(pB);
    pC->m_First.Set(pD);
    pD->m_First.Set(pC);
    pD->m_Second.Set(pA);
    pE->m_First.Set(pE);
    GcRef_c const Outside(pE, pD);
    EXPECT_EQ(Collect(), "cde");
    EXPECT_EQ(Outside.Get(), nullptr) << "an unreachable source keeps nothing alive";
    EXPECT_EQ(Collect(), "");
    EXPECT_EQ(pA->m_First.Get(), pB);

    pA->m_First.Set(nullptr);
    EXPECT_EQ(Collect(), "b");
    m_Root.Set(new Node_c('f'));
    EXPECT_EQ(Collect(), "a");
    auto const pExtra = std::make_unique<GcRef_c>(m_Root.Get(), new Node_c('g'));
    EXPECT_EQ(Collect(), "");
    GcObj::Delete(m_Root.Get());
    EXPECT_EQ(m_Root.Get(), nullptr);
    EXPECT_EQ(pExtra->Get(), nullptr) << "a reference may outlive its source";
    EXPECT_EQ(Collect(), "g");
}

TEST_F(GarbageCollection, DestructorsMayMakeDeleteAndCollect)
{
    auto * const pA = new Node_c('a');
    auto * const pB = new Node_c('b');
    new Node_c('c');
    pA->m_fnEnd = [&]
    {
        GcObj::Delete(pB);
        GcObj::Collect();
        m_Root.Set(new Node_c('n'));
    };
    EXPECT_EQ(Collect(), "bac");
    EXPECT_EQ(Collect(), "");
    m_Root.Set(nullptr);
    EXPECT_EQ(Collect(), "n");
    EXPECT_EQ(g_nAlive, 0);
}

TEST_F(GarbageCollection, FollowsAndCollectsLongPathsWithoutRecursion)
{
    constexpr int NODES = 100000;
    std::vector<Node_c *> dNodes(NODES);
    for (std::size_t i = 0; i < dNodes.size(); ++i)
    {
        dNodes[i] = new Node_c;
        dNodes[i]->m_First.Set(i > 0 ? dNodes[i - 1] : nullptr);
    }
    dNodes.front()->m_First.Set(dNodes.back());
    m_Root.Set(dNodes[NODES / 2]);
    GcObj::Collect();
    EXPECT_EQ(g_nAlive, NODES);
    m_Root.Set(nullptr);
    GcObj::Collect();
    EXPECT_EQ(g_nAlive, 0);
}
