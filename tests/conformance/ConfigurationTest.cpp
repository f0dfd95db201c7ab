// The configuration store.
#include "ConformanceWorld.h"
#include "KRException.h"
#include "KRRegLib.h"

#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

using KRRegLib::CRegKey;
using KRRegLib::CRegLib;

namespace {
std::string numbered(const char* pszStem, unsigned long ulNumber)
{
    std::string sName = pszStem; // joined step by step: GCC 12 falsely warns about the shorter way
    sName += std::to_string(ulNumber);
    return sName;
}
} // namespace

class ConfigurationTest : public testing::Test
{
protected:
    CConformanceWorld m_world;
};

TEST_F(ConfigurationTest, MakesAKeyThatIsNotThere)
{
    CRegLib store;
    CRegKey key;
    EXPECT_GE(store.rootKey().createOrOpenKey("Orvane\\CDS", &key), 0);
    unsigned long ulValue = 77;
    EXPECT_LT(key.queryValue("SendInWorkerThread", &ulValue), 0);
    EXPECT_EQ(ulValue, 77U) << "touched although there is no value";
}

TEST_F(ConfigurationTest, KeepsNumbers)
{
    CRegLib store;
    CRegKey key;
    ASSERT_GE(store.rootKey().createOrOpenKey("Orvane\\CDS", &key), 0);
    for (const unsigned long ulWritten : {0UL, 1UL, 0x80000000UL, 0xFFFFFFFFUL})
    {
        EXPECT_GE(key.setValue("Number", ulWritten), 0);
        unsigned long ulRead = 77;
        EXPECT_GE(key.queryValue("Number", &ulRead), 0);
        EXPECT_EQ(ulRead, ulWritten);
    }
}

TEST_F(ConfigurationTest, KeepsTexts)
{
    CRegLib store;
    CRegKey key;
    ASSERT_GE(store.rootKey().createOrOpenKey("Orvane\\CDS", &key), 0);
    for (const char* pszWritten : {"", "plain", "with \"quotes\" and \\ and \t", "two\nlines", "\xC3\xA4 # = [x]"})
    {
        EXPECT_GE(key.setValue("Text", std::string(pszWritten)), 0);
        std::string sRead = "untouched";
        EXPECT_GE(key.queryValue("Text", &sRead), 0);
        EXPECT_EQ(sRead, pszWritten);
    }
}

TEST_F(ConfigurationTest, ValuesAreFoundAfterANewStart)
{
    {
        CRegLib store;
        CRegKey key;
        ASSERT_GE(store.rootKey().createOrOpenKey("Orvane\\CDS", &key), 0);
        EXPECT_GE(key.setValue("SendInWorkerThread", 1UL), 0);
        EXPECT_GE(key.setValue("Name", std::string("x")), 0);
    }
    m_world.restartConfiguration();
    CRegLib store;
    CRegKey key;
    ASSERT_GE(store.rootKey().createOrOpenKey("Orvane\\CDS", &key), 0);
    unsigned long ulValue = 0;
    std::string sValue;
    EXPECT_GE(key.queryValue("SendInWorkerThread", &ulValue), 0);
    EXPECT_EQ(ulValue, 1U);
    EXPECT_GE(key.queryValue("Name", &sValue), 0);
    EXPECT_EQ(sValue, "x");
}

TEST_F(ConfigurationTest, AWrongTypeIsNoValue)
{
    CRegLib store;
    CRegKey key;
    ASSERT_GE(store.rootKey().createOrOpenKey("Orvane\\CDS", &key), 0);
    ASSERT_GE(key.setValue("Number", 5UL), 0);
    ASSERT_GE(key.setValue("Text", std::string("5")), 0);
    std::string sValue = "untouched";
    unsigned long ulValue = 77;
    EXPECT_LT(key.queryValue("Number", &sValue), 0);
    EXPECT_LT(key.queryValue("Text", &ulValue), 0);
    EXPECT_EQ(sValue, "untouched");
    EXPECT_EQ(ulValue, 77U);
    EXPECT_GE(key.setValue("Text", 6UL), 0) << "a value may change its type";
    EXPECT_GE(key.queryValue("Text", &ulValue), 0);
    EXPECT_EQ(ulValue, 6U);
}

TEST_F(ConfigurationTest, KeysNest)
{
    CRegLib store;
    CRegKey outer;
    CRegKey inner;
    CRegKey whole;
    ASSERT_GE(store.rootKey().createOrOpenKey("Orvane", &outer), 0);
    ASSERT_GE(outer.createOrOpenKey("CDS", &inner), 0);
    ASSERT_GE(store.rootKey().createOrOpenKey("Orvane\\CDS", &whole), 0);
    ASSERT_GE(inner.setValue("a", 1UL), 0);
    ASSERT_GE(outer.setValue("a", 2UL), 0);
    unsigned long ulValue = 0;
    EXPECT_GE(whole.queryValue("a", &ulValue), 0);
    EXPECT_EQ(ulValue, 1U);
    EXPECT_GE(outer.queryValue("a", &ulValue), 0);
    EXPECT_EQ(ulValue, 2U);
}

TEST_F(ConfigurationTest, RefusesNamesThatAreNone)
{
    CRegLib store;
    CRegKey key;
    for (const char* pszName : {"", "\\", "a\\", "\\a", "a\\\\b"})
        EXPECT_LT(store.rootKey().createOrOpenKey(pszName, &key), 0) << pszName;
    EXPECT_LT(key.setValue("a", 1UL), 0) << "a key that was never opened";
    EXPECT_LT(store.rootKey().setValue("", 1UL), 0);
}

TEST_F(ConfigurationTest, ThrowsWhenItCannotBeOpened)
{
    m_world.breakConfiguration();
    EXPECT_THROW(CRegLib(), KRException);
}

TEST_F(ConfigurationTest, ThreadsLeaveItWhole)
{
    std::vector<std::thread> vecThreads;
    for (int nThread = 0; nThread < 4; ++nThread)
    {
        vecThreads.emplace_back([nThread] {
            CRegLib store;
            CRegKey key;
            EXPECT_GE(store.rootKey().createOrOpenKey(numbered("Orvane\\T", static_cast<unsigned long>(nThread)), &key),
                      0);
            for (unsigned long ul = 0; ul < 20; ++ul)
                EXPECT_GE(key.setValue(numbered("v", ul), ul), 0);
        });
    }
    for (std::thread& thread : vecThreads)
        thread.join();
    m_world.restartConfiguration();
    CRegLib store;
    for (int nThread = 0; nThread < 4; ++nThread)
    {
        CRegKey key;
        ASSERT_GE(store.rootKey().createOrOpenKey(numbered("Orvane\\T", static_cast<unsigned long>(nThread)), &key), 0);
        for (unsigned long ul = 0; ul < 20; ++ul)
        {
            unsigned long ulRead = 77;
            EXPECT_GE(key.queryValue(numbered("v", ul), &ulRead), 0);
            EXPECT_EQ(ulRead, ul);
        }
    }
}
