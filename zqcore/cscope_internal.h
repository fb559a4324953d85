// cscope_internal.h: a value that a variable has for a scope.
#pragma once

/// Sets a variable for a scope; the previous value returns however the scope ends. For state round a call of a host's code,
/// which may throw: a flag against re-entrance above all. The variable belongs to one thread, or to who holds its lock.
template <typename VARIABLE, typename VALUE>
class ValueScope_T
{
public:
    ValueScope_T(VARIABLE & Variable, VALUE Value)
        : m_Variable(Variable)
        , m_Former(Variable)
    {
        m_Variable = Value;
    }
    ~ValueScope_T() { m_Variable = m_Former; }
    ValueScope_T(ValueScope_T const &) = delete;
    ValueScope_T & operator=(ValueScope_T const &) = delete;

private:
    VARIABLE & m_Variable;
    VALUE const m_Former;
};
