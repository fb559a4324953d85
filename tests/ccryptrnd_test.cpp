#include "tests/hash_support.h"
#include "tests/test_support.h"
#include "zqcore/ccallback.h"
#include "zqcore/ccryptrnd.h"
#include "zqcore/ccryptrnd_internal.h"

#include <set>

namespace
{
    // Returns what block iCounter of a pool holds, in the order of output.
    std::string Block(char iCounter, std::string const & sPool)
    {
        std::string const sHash = Sha1Of(std::string{ iCounter, 0, 0, 0 } + sPool);
        return std::string(sHash.rbegin(), sHash.rend());
    }

    // Returns the generator's next bytes.
    std::string Take(CryptoRandomGenerator_c & Generator, std::size_t nBytes)
    {
        std::string sBytes(nBytes, '\0');
        Generator.Get(reinterpret_cast<unsigned char *>(sBytes.data()), nBytes);
        return sBytes;
    }

    Password_s Password(std::string const & sText)
    {
        Password_s Pass;
        Pass.Set(sText.c_str());
        return Pass;
    }

    int g_nHeardMessages = 0;
}

TEST(CryptRandom, ReturnsBlocksFromTheirEndAndKeepsTheNewestBytes)
{
    CryptoRandomGenerator_c Generator;
    EXPECT_EQ(Block(0, "")[0], 0x73) << "the SHA-1 of four zero bytes ends so";
    EXPECT_EQ(Take(Generator, SHA1_HASH_SIZE + 1), Block(0, "") + Block(1, "")[0]);
    EXPECT_EQ(Take(Generator, SHA1_HASH_SIZE - 1), Block(1, "").substr(1));
    std::string sPool;
    for (unsigned char i = 0; i < CryptoRandomGenerator_c::POOL_SIZE; ++i)
    {
        EXPECT_EQ(Generator.GetPoolSize(), i);
        sPool += static_cast<char>(i);
        Generator.Put(i);
    }
    EXPECT_EQ(Take(Generator, SHA1_HASH_SIZE), Block(2, sPool));
    Generator.Put('x');
    sPool[0] = 'x';
    EXPECT_EQ(Generator.GetPoolSize(), CryptoRandomGenerator_c::POOL_SIZE);
    EXPECT_EQ(Take(Generator, SHA1_HASH_SIZE), Block(3, sPool));
}

TEST(CryptRandom, ForkedChildrenReturnBytesOfTheirOwn)
{
    auto const FirstByte = []
    {
        unsigned char cByte;
        GetRandomBytes(&cByte, 1);
        return int{ cByte };
    };
    std::set<int> dFirst;
    for (int i = 0; i < 8; ++i)
    {
        dFirst.insert(StatusOfChild(StartChild(FirstByte)));
    }
    EXPECT_GT(dFirst.size(), 1u);
}

TEST(CryptRandom, TheModuleListensToApplicationMessages)
{
    g_nHeardMessages = 0;
    auto const Hear = [](MessageData_s) { ++g_nHeardMessages; };
    g_ApplicationMessages.Add(Hear, false);
    ASSERT_TRUE(StartModule(ModuleCryptRandom_c::Get()));
    g_ApplicationMessages.Fire({}, false);
    EXPECT_EQ(g_nHeardMessages, 1) << "the module is not exclusive";
    g_ApplicationMessages.Remove(Hear);
    EXPECT_FALSE(g_ApplicationMessages.IsEmpty());
    Module_c::ShutdownAllModules();
    EXPECT_TRUE(g_ApplicationMessages.IsEmpty());
    // The pool holds the byte that the message added, so no block is that of an empty pool.
    unsigned char dBytes[2 * SHA1_HASH_SIZE];
    GetRandomBytes(dBytes, sizeof dBytes);
    std::string const sBytes(std::begin(dBytes), std::end(dBytes));
    for (char iCounter = 0; iCounter < 100; ++iCounter)
    {
        EXPECT_EQ(sBytes.find(Block(iCounter, "")), std::string::npos)
            << "block " << int{ iCounter } << " of an empty pool";
    }
}

TEST(CryptRandom, ComplainsOfNoBufferNoBytesAndAnUnsetPassword)
{
    unsigned char cByte = 0xEE;
    EXPECT_EQ(FailedConditions([] { GetRandomBytes(nullptr, 1); }), "dOutput != nullptr");
    EXPECT_EQ(FailedConditions([&] { GetRandomBytes(&cByte, 0); }), "nBytes > 0");
    EXPECT_EQ(cByte, 0xEE);
    auto const XorUnset = []
    {
        Password_s().Xor(Password("a"));
        Password("a").Xor(Password_s());
    };
    EXPECT_EQ(FailedConditions(XorUnset), "bIsSet && Pass.bIsSet & bIsSet && Pass.bIsSet");
}

TEST(Password, HoldsADigestThatComparesAndCombines)
{
    EXPECT_EQ(Password("").dHash.front(), 0x5B) << "the SHA-1 of the single byte 0";
    EXPECT_EQ(Password("abc").dHash.back(), 0x77) << "the SHA-1 of the byte 3 and the text ends so";
    EXPECT_EQ(Password(std::string(255, 'x')).dHash.back(), 0x67) << "the length still fits into the byte";

    Password_s Unset, One = Password("one"), Two = Password("two"), Sum = One;
    EXPECT_EACH(
        Unset == Password_s(), Unset != Password_s(Password_s::Hash_t{}), One == Password_s(One.dHash), One != Two);
    Sum.Xor(Two);
    EXPECT_EQ(Sum.dHash[7], One.dHash[7] ^ Two.dHash[7]);
    Sum.Xor(Two);
    EXPECT_TRUE(Sum == One);
    One.Clear();
    EXPECT_EACH(One == Unset, One.dHash == Password_s::Hash_t{});
}
