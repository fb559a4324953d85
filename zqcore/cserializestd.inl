// cserializestd.inl: bodies of the functions for standard types.
#pragma once

namespace archives
{
    /// Loads contiguous values. Reads an archive of unknown length in steps: FIRST_STEP values first, then each time
    /// as many as all before, so that a damaged number allocates little memory for which no bytes follow.
    template <typename T>
    void LoadValues(Serializeable_c & Archive, T & dItems, std::size_t nValues)
    {
        constexpr std::size_t FIRST_STEP = 4096;
        bool const bKnown = Archive.GetLeft() >= 0;
        dItems.resize(bKnown ? nValues : 0);
        for (std::size_t nLoaded = 0; nLoaded < nValues && !Archive.IsFailed();)
        {
            std::size_t const nStep = bKnown ? nValues : std::min(nValues - nLoaded, std::max(nLoaded, FIRST_STEP));
            dItems.resize(nLoaded + nStep);
            TransferAll(Archive, dItems.data() + nLoaded, nStep);
            nLoaded += nStep;
        }
    }

    /// Stores or loads one element. A bool may be a mere bit, as in a std::vector<bool>.
    template <typename ITERATOR>
    void TransferElement(Serializeable_c & Archive, ITERATOR it)
    {
        if constexpr (std::same_as<std::iter_value_t<ITERATOR>, bool>)
        {
            bool bValue = *it;
            Archive.Serialize(bValue);
            if (Archive.IsReading())
            {
                *it = bValue;
            }
        }
        else
        {
            Archive.Serialize(*it);
        }
    }

    /// Reserves room for the elements, but no more bytes than the rest of the archive has. Reserves none if the length
    /// of the archive is unknown.
    template <typename T>
    void Reserve(Serializeable_c const & Archive, T & dItems, std::size_t nElements)
    {
        if constexpr (requires { dItems.reserve(nElements); })
        {
            auto const nLeft = static_cast<std::size_t>(std::max(Archive.GetLeft(), 0));
            dItems.reserve(std::min(nElements, nLeft / sizeof(typename T::value_type)));
        }
    }

    /// Loads elements one by one. Texts that are there already keep their storage, unless there are more than
    /// nElements.
    template <typename T>
    void LoadElements(Serializeable_c & Archive, T & dItems, std::size_t nElements)
    {
        if (!ArchiveText_T<typename T::value_type> || dItems.size() > nElements)
        {
            dItems.clear();
        }
        std::size_t nLoaded = 0;
        for (auto it = dItems.begin(); it != dItems.end() && !Archive.IsFailed(); ++it, ++nLoaded)
        {
            TransferElement(Archive, it);
        }
        if (nLoaded < dItems.size())
        {
            return dItems.resize(nLoaded);   // the archive has failed
        }
        Reserve(Archive, dItems, nElements);
        for (; nLoaded < nElements && !Archive.IsFailed(); ++nLoaded)
        {
            dItems.emplace_back();
            TransferElement(Archive, std::prev(dItems.end()));
        }
    }

    /// Calls fnStore for each entry, in the order of the keys.
    template <typename T, typename KEY_OF, typename STORE>
    void VisitInOrder(T & dItems, KEY_OF fnKeyOf, STORE fnStore)
    {
        if constexpr (requires { typename T::hasher; })
        {
            static_assert(
                requires(typename T::key_type const & Key) { Key < Key; },
                "An archive stores an unordered container in the order of its keys. Give their class an operator <.");
            std::vector<typename T::value_type const *> dSorted;
            dSorted.reserve(dItems.size());
            for (auto const & Entry : dItems)
            {
                dSorted.push_back(&Entry);
            }
            std::stable_sort(dSorted.begin(), dSorted.end(),
                [&](auto const * pA, auto const * pB) { return fnKeyOf(*pA) < fnKeyOf(*pB); });
            for (auto const * pEntry : dSorted)
            {
                fnStore(*pEntry);
            }
        }
        else
        {
            for (auto const & Entry : dItems)
            {
                fnStore(Entry);
            }
        }
    }

    /// Stores an object that its container shows as const. A writing archive does not change it.
    template <typename T>
    void Store(Serializeable_c & Archive, T const & Value)
    {
        Archive.Serialize(const_cast<T &>(Value));
    }

    /// Replaces the entries of dItems. fnLoadOne loads and adds one. If its key is there already, fails the archive.
    template <typename T, typename LOAD>
    void LoadEntries(Serializeable_c & Archive, T & dItems, std::size_t nEntries, LOAD fnLoadOne)
    {
        dItems.clear();
        for (std::size_t i = 0; i < nEntries && !Archive.IsFailed(); ++i)
        {
            fnLoadOne();
            if (!Archive.IsFailed() && dItems.size() == i)
            {
                Archive.Fail();   // a key that is there already
            }
        }
    }
}

template <ArchiveText_T T>
void Serialize(Serializeable_c & Archive, T & sText)
{
    if (!Archive.IsReading())
    {
        return Archive.StoreText(sText.data(), sText.size());
    }
    if (std::string_view sView; Archive.ViewText(sView)) [[likely]]
    {
        sText.assign(sView.data(), sView.size());
        return;
    }
    auto const nLength = static_cast<std::size_t>(Archive.SerializeCount(0));
    if (!Archive.IsFailed())
    {
        archives::LoadValues(Archive, sText, nLength);
        Archive.Serialize(nullptr, 1);   // the terminator
    }
}

template <ArchiveSequence_T T>
void Serialize(Serializeable_c & Archive, T & dItems)
{
    using Element_t = typename T::value_type;
    constexpr bool IS_RUN = ArchiveValue_T<Element_t> && !std::same_as<Element_t, bool> && requires
    {
        dItems.data();
    };
    auto const nElements =
        static_cast<std::size_t>(Archive.SerializeCount(dItems.size(), IS_RUN ? sizeof(Element_t) : std::size_t{ 1 }));
    if (Archive.IsFailed())
    {
        return;
    }
    if constexpr (IS_RUN)
    {
        if (Archive.IsReading())
        {
            archives::LoadValues(Archive, dItems, nElements);
        }
        else
        {
            archives::TransferAll(Archive, dItems.data(), nElements);
        }
    }
    else if (Archive.IsReading())
    {
        archives::LoadElements(Archive, dItems, nElements);
    }
    else
    {
        for (auto it = dItems.begin(); it != dItems.end() && !Archive.IsFailed(); ++it)
        {
            archives::TransferElement(Archive, it);
        }
    }
}

template <ArchiveMap_T T>
void Serialize(Serializeable_c & Archive, T & dItems)
{
    auto const nEntries = static_cast<std::size_t>(Archive.SerializeCount(dItems.size()));
    if (Archive.IsReading() && !Archive.IsFailed())
    {
        archives::LoadEntries(Archive, dItems, nEntries,
            [&]
            {
                typename T::key_type Key{};
                typename T::mapped_type Value{};
                Archive.Serialize(Key).Serialize(Value);
                dItems.emplace_hint(dItems.end(), std::move(Key), std::move(Value));
            });
    }
    else if (!Archive.IsReading())
    {
        archives::VisitInOrder(
            dItems, [](auto const & Entry) -> auto const & { return Entry.first; },
            [&](auto const & Entry)
            {
                archives::Store(Archive, Entry.first);
                archives::Store(Archive, Entry.second);
            });
    }
}

template <ArchiveSet_T T>
requires(!ArchiveMap_T<T>) void Serialize(Serializeable_c & Archive, T & dItems)
{
    auto const nEntries = static_cast<std::size_t>(Archive.SerializeCount(dItems.size()));
    if (Archive.IsReading() && !Archive.IsFailed())
    {
        archives::LoadEntries(Archive, dItems, nEntries,
            [&]
            {
                typename T::key_type Key{};
                Archive.Serialize(Key);
                dItems.emplace_hint(dItems.end(), std::move(Key));
            });
    }
    else if (!Archive.IsReading())
    {
        archives::VisitInOrder(
            dItems, [](auto const & Key) -> auto const & { return Key; },
            [&](auto const & Key) { archives::Store(Archive, Key); });
    }
}

template <typename T>
void Serialize(Serializeable_c & Archive, std::optional<T> & Value)
{
    bool bHas = Value.has_value();
    Archive.Serialize(bHas);
    if (Archive.IsReading() && !Archive.IsFailed())
    {
        Value.reset();
        if (bHas)
        {
            Value.emplace();
        }
    }
    if (bHas && !Archive.IsFailed())
    {
        Archive.Serialize(*Value);
    }
}

template <typename FIRST, typename SECOND>
void Serialize(Serializeable_c & Archive, std::pair<FIRST, SECOND> & Value)
{
    static_assert(!std::is_reference_v<FIRST> && !std::is_reference_v<SECOND>,
        "An archive refuses a pair of references. Store the objects.");
    Archive.Serialize(Value.first).Serialize(Value.second);
}

template <typename... T>
void Serialize(Serializeable_c & Archive, std::tuple<T...> & Value)
{
    static_assert((!std::is_reference_v<T> && ...), "An archive refuses a tuple of references. Store the objects.");
    std::apply([&](T &... Part) { (Archive.Serialize(Part), ...); }, Value);
}

template <typename T, std::size_t N>
void Serialize(Serializeable_c & Archive, std::array<T, N> & dItems)
{
    archives::TransferAll(Archive, dItems.data(), N);
}
