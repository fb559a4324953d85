// cprintf.h: printf formats whose arguments are text classes.
//
// Log and functions like it accept a printf format. `%s` also accepts a text class: a String_T, a std::string, a
// std::string_view, and classes like them. If one of the arguments is such a class, a template passes its text to the
// function, and checks the format against the arguments:
// - g++ with optimisation, and clang++ always, refuse a call whose literal format does not match.
// - g++ without optimisation checks when the call runs. With optimisation it does the same for a format of more than
//   255 characters. A format that does not match is then written as it is.
// - A format in a variable is checked when the call runs.
//
// All other calls are those of the function itself: clang++ always checks them, g++ with -Wformat, a part of -Wall.
//
// Ownership: the texts belong to the caller.
// Threads: any thread.
// Cost: that of a call with CStr(), and of one pass over a format that is checked when the call runs. A
// std::string_view is copied, cut at 4095 characters.
// Failure: a format that does not match does not compile, or is written as it is.
//
//     String_T<32> const sName("Ogre");
//     std::string const sPlace = "the cave";
//     Log("%s has %i lives in %s.", sName, 3, sPlace);
#pragma once

#include "platform/compiler.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

/// A class that has a terminated text.
template <typename T>
concept PrintfText_T = requires(T const & Text)
{
    {
        Text.CStr()
        } -> std::same_as<char const *>;
}
|| requires(T const & Text)
{
    {
        Text.c_str()
        } -> std::same_as<char const *>;
};

/// A class that has a text without a terminator, such as std::string_view.
template <typename T>
concept PrintfView_T = std::is_class_v<T> && !PrintfText_T<T> && requires(T const & Text)
{
    {
        Text.data()
        } -> std::same_as<char const *>;
    {
        Text.size()
        } -> std::same_as<std::size_t>;
};

/// Whether a text class is among the types of arguments.
template <typename... ARGS>
concept PrintfTexts_T = ((PrintfText_T<ARGS> || PrintfView_T<ARGS>) || ...);

/// Types of a format in a variable.
template <typename T>
concept PrintfPointer_T = std::same_as<T, char const *> || std::same_as<T, char *>;

/// Kind of an argument that printf distinguishes from others.
enum class PrintfKind_e : unsigned char
{
    Unknown,   // nothing that printf accepts
    Int,
    Long,
    LongLong,
    Double,
    LongDouble,
    Text,   // this and the next two are what %p accepts
    WideText,
    Pointer
};

/// Returns the kind of an argument's type. As for the compiler's own check, signed and unsigned are one kind.
template <typename T>
constexpr PrintfKind_e PrintfKind()
{
    using enum PrintfKind_e;
    using Value_t = std::decay_t<T>;
    if constexpr (PrintfText_T<Value_t> || PrintfView_T<Value_t>)
    {
        return Text;
    }
    else if constexpr (std::is_integral_v<Value_t> || (std::is_enum_v<Value_t> && std::is_convertible_v<Value_t, long>))
    {
        using Promoted_t = std::make_signed_t<decltype(+Value_t())>;
        return std::is_same_v<Promoted_t, int> ? Int : std::is_same_v<Promoted_t, long> ? Long : LongLong;
    }
    else if constexpr (std::is_floating_point_v<Value_t>)
    {
        return std::is_same_v<Value_t, long double> ? LongDouble : Double;
    }
    else if constexpr (std::is_pointer_v<Value_t>)
    {
        using Target_t = std::remove_cv_t<std::remove_pointer_t<Value_t>>;
        constexpr bool bText =
            std::is_same_v<Target_t,
                char> || std::is_same_v<Target_t, unsigned char> || std::is_same_v<Target_t, signed char>;
        return bText                               ? Text
               : std::is_same_v<Target_t, wchar_t> ? WideText
               : std::is_function_v<Target_t>      ? Unknown
                                                   : Pointer;
    }
    else
    {
        return Unknown;
    }
}

/// Check of a format against the types of its arguments: an automaton with one step for each character. Each step is
/// inlined, so that an optimising compiler folds the check of a literal to a constant.
template <typename... ARGS>
class PrintfCheck_T
{
public:
    /// Returns whether the format accepts exactly these arguments. Refuses %n, and what differs between C libraries:
    /// %lc, %C, %S, positions (%1$s) and the flags ' and I.
    template <std::size_t N>
    static constexpr bool Matches(char const (&szFormat)[N])
    {
        State_s State;
        for (std::size_t i = 0; i < N; ++i)
        {
            Step(State, szFormat[i]);
        }
        return IsGood(State);
    }

    /// Returns what Matches does, for a terminated text.
    static constexpr bool MatchesText(char const * szFormat)
    {
        State_s State;
        do
        {
            Step(State, *szFormat);
        }
        while (*szFormat++ != '\0');
        return IsGood(State);
    }

    /// Returns what Matches does, without a loop.
    template <std::size_t N, std::size_t... I>
    ZQ_INLINE static bool Fold(char const (&szFormat)[N], std::index_sequence<I...>)
    {
        State_s State;
        (Step(State, szFormat[I]), ...);
        return IsGood(State);
    }

private:
    using Kind_e = PrintfKind_e;

    enum Place_e : unsigned char
    {
        PLAIN,
        FLAGS,
        WIDTH,
        POINT,
        PRECISION,
        LENGTH,
        WRONG,
        END
    };

    struct State_s
    {
        Place_e ePlace = PLAIN;
        char cLength = 0;   // 'H' for hh, 'q' for ll, 0 for none
        std::size_t nArguments = 0;
    };

    static constexpr Kind_e KINDS[sizeof...(ARGS) + 1] = { PrintfKind<ARGS>()..., Kind_e::Unknown };

    ZQ_INLINE static constexpr bool IsGood(State_s const & State)
    {
        return State.ePlace == END && State.nArguments == sizeof...(ARGS);
    }

    /// Consumes the next argument. Continues at eThen if a conversion for eKind accepts the argument, else at WRONG.
    ZQ_INLINE static constexpr void Take(State_s & State, Kind_e eKind, Place_e eThen)
    {
        Kind_e const eArgument = State.nArguments < sizeof...(ARGS) ? KINDS[State.nArguments] : Kind_e::Unknown;
        bool const bAddress = eKind == Kind_e::Pointer && eArgument >= Kind_e::Text;
        State.ePlace = eKind != Kind_e::Unknown && (eArgument == eKind || bAddress) ? eThen : WRONG;
        ++State.nArguments;
    }

    ZQ_INLINE static constexpr Kind_e IntegerKind(char cLength)
    {
        return cLength == 'l'   ? Kind_e::Long
               : cLength == 'q' ? Kind_e::LongLong
               : cLength == 'z' ? PrintfKind<std::size_t>()
               : cLength == 't' ? PrintfKind<std::ptrdiff_t>()
               : cLength == 'j' ? PrintfKind<std::intmax_t>()
               : cLength == 'L' ? Kind_e::Unknown
                                : Kind_e::Int;
    }

    /// Returns eKind, that of a conversion without a length, or Unknown if a length precedes it.
    ZQ_INLINE static constexpr Kind_e PlainKind(char cLength, Kind_e eKind)
    {
        return cLength == 0 ? eKind : Kind_e::Unknown;
    }

    ZQ_INLINE static constexpr void Step(State_s & State, char cNext)
    {
        if (State.ePlace == PLAIN)
        {
            State.cLength = 0;
            State.ePlace = cNext == '%' ? FLAGS : cNext == '\0' ? END : PLAIN;
            return;
        }
        if (State.ePlace == FLAGS)
        {
            if (cNext == '-' || cNext == '+' || cNext == ' ' || cNext == '#' || cNext == '0')
            {
                return;
            }
            if (cNext == '%')
            {
                State.ePlace = PLAIN;
                return;
            }
            State.ePlace = WIDTH;
        }
        if (State.ePlace == WIDTH || State.ePlace == PRECISION)
        {
            if (cNext >= '0' && cNext <= '9')
            {
                return;
            }
            Place_e const eThen = State.ePlace == WIDTH ? POINT : LENGTH;
            if (cNext == '*')
            {
                Take(State, Kind_e::Int, eThen);
                return;
            }
            State.ePlace = eThen;
        }
        if (State.ePlace == POINT)
        {
            State.ePlace = cNext == '.' ? PRECISION : LENGTH;
            if (cNext == '.')
            {
                return;
            }
        }
        if (State.ePlace == LENGTH)
        {
            Convert(State, cNext);
        }
    }

    /// Consumes a character of a length, or a conversion with its argument.
    ZQ_INLINE static constexpr void Convert(State_s & State, char cNext)
    {
        char const cLength = State.cLength;
        switch (cNext)
        {
        case 'h':
        case 'l':
            State.ePlace = cLength == 0 || cLength == cNext ? LENGTH : WRONG;
            State.cLength = cLength == 0 ? cNext : cNext == 'h' ? 'H' : 'q';
            return;
        case 'z':
        case 'j':
        case 't':
        case 'L':
            State.ePlace = cLength == 0 ? LENGTH : WRONG;
            State.cLength = cNext;
            return;
        case 'd':
        case 'i':
        case 'u':
        case 'x':
        case 'X':
        case 'o':
            return Take(State, IntegerKind(cLength), PLAIN);
        case 'c':
            return Take(State, PlainKind(cLength, Kind_e::Int), PLAIN);
        case 's':
            return Take(State, cLength == 'l' ? Kind_e::WideText : PlainKind(cLength, Kind_e::Text), PLAIN);
        case 'p':
            return Take(State, PlainKind(cLength, Kind_e::Pointer), PLAIN);
        case 'e':
        case 'E':
        case 'f':
        case 'F':
        case 'g':
        case 'G':
        case 'a':
        case 'A':
            return Take(State,
                cLength == 'L'   ? Kind_e::LongDouble
                : cLength == 'l' ? Kind_e::Double   // without effect
                                 : PlainKind(cLength, Kind_e::Double),
                PLAIN);
        default:
            State.ePlace = WRONG;
        }
    }
};

/// An argument as printf accepts it.
template <typename T>
class PrintfArgument_T
{
public:
    /// Holds a reference to the value. Requires that the value outlives the object.
    explicit PrintfArgument_T(T const & Value)
        : m_Value(Value)
    {}

    /// Returns what printf accepts: a pointer to the text of a text class, any other value as it is passed.
    decltype(auto) Get() const
    {
        if constexpr (requires { m_Value.CStr(); })
        {
            return m_Value.CStr();
        }
        else if constexpr (PrintfText_T<T>)
        {
            return m_Value.c_str();
        }
        else
        {
            return static_cast<std::decay_t<T const>>(m_Value);
        }
    }

private:
    T const & m_Value;
};

/// Terminated copy of a text without a terminator, cut at 4095 characters.
template <PrintfView_T T>
class PrintfArgument_T<T>
{
public:
    /// Copies the text.
    explicit PrintfArgument_T(T const & Value)
    {
        std::size_t const nCopy = Value.size() < sizeof m_szText ? Value.size() : sizeof m_szText - 1;
        if (nCopy > 0)
        {
            std::memcpy(m_szText, Value.data(), nCopy);
        }
        m_szText[nCopy] = '\0';
    }

    /// Returns the copy.
    char const * Get() const { return m_szText; }

private:
    char m_szText[4096];
};

/// Fails the compilation if a call of it remains after optimisation.
void PrintfRefuseFormat() ZQ_COMPILE_ERROR("the format does not match its arguments");

/// Returns whether the format matches, for the templates of ZQ_PRINTF_TEXTS. Refuses to compile a literal that does
/// not, if the compiler folds the check.
template <typename... ARGS, std::size_t N>
ZQ_INLINE bool PrintfMatches(char const (&szFormat)[N])
{
    constexpr std::size_t LONGEST_FOLDED = 256;
    if constexpr (ZQ_FOLDS_CALLS && N <= LONGEST_FOLDED)
    {
        bool const bMatches = PrintfCheck_T<ARGS...>::Fold(szFormat, std::make_index_sequence<N>());
        if (ZQ_IS_CONSTANT(bMatches))
        {
            if (!bMatches)
            {
                PrintfRefuseFormat();
            }
            return true;
        }
    }
    return PrintfCheck_T<ARGS...>::Matches(szFormat);
}

/// Define the templates of a function that has a format. RESULT is its result with attributes. RETURN is "return" or
/// nothing. ZQ_PRINTF_TEXTS_AFTER has the parameters before the format, and their names, both in parentheses.
#define ZQ_PRINTF_TEXTS(RESULT, RETURN, FUNCTION) ZQ_PRINTF_TEXTS_AFTER(RESULT, RETURN, FUNCTION, (), ())
#define ZQ_PRINTF_TEXTS_AFTER(RESULT, RETURN, FUNCTION, PARAMETERS, NAMES)                                             \
    template <std::size_t N, typename... ARGS>                                                                         \
    RESULT FUNCTION(                                                                                                   \
        ZQ_PRINTF_LIST PARAMETERS char const(&fmt)[N], ARGS const &... Args) requires PrintfTexts_T<ARGS...>           \
        ZQ_REFUSE_IF(!PrintfCheck_T<ARGS...>::Matches(fmt), "the format does not match its arguments");                \
    template <std::size_t N, typename... ARGS>                                                                         \
    RESULT FUNCTION(                                                                                                   \
        ZQ_PRINTF_LIST PARAMETERS char const(&fmt)[N], ARGS const &... Args) requires PrintfTexts_T<ARGS...>           \
    {                                                                                                                  \
        ZQ_PRINTF_PASS(PrintfMatches<ARGS...>(fmt), RETURN, FUNCTION, NAMES)                                           \
    }                                                                                                                  \
    template <PrintfPointer_T FORMAT, typename... ARGS>                                                                \
    RESULT FUNCTION(                                                                                                   \
        ZQ_PRINTF_LIST PARAMETERS FORMAT const & fmt, ARGS const &... Args) requires PrintfTexts_T<ARGS...>            \
    {                                                                                                                  \
        ZQ_PRINTF_PASS(PrintfCheck_T<ARGS...>::MatchesText(fmt), RETURN, FUNCTION, NAMES)                              \
    }

/// Parts of these macros: the call of the function, and a list with a comma after it unless it is empty.
#define ZQ_PRINTF_PASS(MATCHES, RETURN, FUNCTION, NAMES)                                                               \
    char const * const szFormat = fmt;                                                                                 \
    if (MATCHES)                                                                                                       \
    {                                                                                                                  \
        RETURN FUNCTION(ZQ_PRINTF_LIST NAMES szFormat, PrintfArgument_T<ARGS>(Args).Get()...);                         \
    }                                                                                                                  \
    else                                                                                                               \
    {                                                                                                                  \
        RETURN FUNCTION(ZQ_PRINTF_LIST NAMES "%s", szFormat);                                                          \
    }
#define ZQ_PRINTF_LIST(...) __VA_OPT__(__VA_ARGS__, )
