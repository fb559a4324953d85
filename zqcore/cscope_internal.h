// cscope_internal.h: a variable's value for a scope.
#pragma once

/// Scope in which a variable has a value. Its end restores the previous value, even if an exception ends it. It serves
/// flags around calls of a host's code, which may throw, such as a guard against re-entrance. Requires that the
/// variable outlives the scope, and belongs to one thread or to the thread that holds its lock. Requires that VALUE
/// holds each value of the variable.
template <typename VARIABLE, typename VALUE>
class ValueScope_T
{
public:
    ValueScope_T(VARIABLE & Variable, VALUE Value)
        : m_Variable(Variable)
        , m_Previous(Variable)
    {
        m_Variable = Value;
    }
    ~ValueScope_T() { m_Variable = m_Previous; }
    ValueScope_T(ValueScope_T const &) = delete;
    ValueScope_T & operator=(ValueScope_T const &) = delete;

private:
    VARIABLE & m_Variable;
    VALUE const m_Previous;
};
