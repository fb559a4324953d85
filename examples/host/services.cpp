#include "services.h"

#include "zqcore/cdebug.h"
#include "zqcore/ctimer.h"

bool StartMark_c::Initialize()
{
    m_tUp = longTimeGetPassed();
    return Module_c::Initialize();
}

void Services_c::Add(Module_c * pModule)
{
    ZQ_ASSERT(m_nServices < MAX_SERVICES);
    if (m_nServices >= MAX_SERVICES)
    {
        return;
    }
    StartMark_c & Mark = m_dMarks[m_nServices++];
    Mark.Watch(pModule);
    Module_c::Register(pModule);
    Module_c::Register(&Mark);
}

bool Services_c::Start()
{
    m_tStart = longTimeGetPassed();
    return Module_c::InitializeAllModules();
}

double Services_c::GetStartTime(int iService) const
{
    double const tBefore = iService > 0 ? m_dMarks[iService - 1].GetTime() : m_tStart;
    return m_dMarks[iService].GetTime() - tBefore;
}

double Services_c::GetStartTime(Module_c const & Module) const
{
    for (int i = 0; i < m_nServices; ++i)
    {
        if (m_dMarks[i].GetWatched() == &Module)
        {
            return GetStartTime(i);
        }
    }
    return 0.0;
}
