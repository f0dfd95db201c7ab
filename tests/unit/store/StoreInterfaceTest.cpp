// The store's interface as other binaries see it.

#include "CDSAPI.h"

#include "CDSNetProxyCallback.h"
#include "Results.h"
#include "StoreStory.h"

#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>

namespace {

static_assert(std::is_abstract_v<CBaseCDSAPI>);
static_assert(!std::has_virtual_destructor_v<CBaseCDSAPI>);
static_assert(!std::has_virtual_destructor_v<CCDSAPI>);
static_assert(std::is_convertible_v<CCDSAPI*, CBaseCDSAPI*>);
static_assert(!std::is_copy_constructible_v<CCDSAPI> && !std::is_copy_assignable_v<CCDSAPI>);
static_assert(
    std::is_same_v<decltype(&CCDSAPI::Register),
                   long (CCDSAPI::*)(unsigned long, const std::string&, const std::string&, const std::string&,
                                     const std::string&, long (*)(CCallbackMsg*), unsigned long)>);
static_assert(
    std::is_same_v<decltype(&CCDSAPI::GetCallData), long (CCDSAPI::*)(const std::string&, const std::string&)>);

/// Where in the table of virtual functions an operation stands: a pointer to it is its offset and 1.
template <class TMember> std::size_t slotOf(TMember pfnMember)
{
    std::size_t uOffset = 0;
    static_assert(sizeof pfnMember >= sizeof uOffset);
    std::memcpy(&uOffset, &pfnMember, sizeof uOffset);
    return (uOffset - 1) / sizeof(void*);
}

TEST(StoreInterfaceTest, VirtualOperationsKeepTheirSlots)
{
    EXPECT_EQ(slotOf(&CBaseCDSAPI::Initialize), 0U);
    EXPECT_EQ(slotOf(&CBaseCDSAPI::Finalize), 1U);
    EXPECT_EQ(slotOf(&CBaseCDSAPI::Register), 2U);
    EXPECT_EQ(slotOf(&CBaseCDSAPI::Unregister), 3U);
    EXPECT_EQ(slotOf(&CBaseCDSAPI::Update), 4U);
    EXPECT_EQ(slotOf(&CBaseCDSAPI::GetCallIDTimestamp), 5U);
    EXPECT_EQ(slotOf(&CBaseCDSAPI::GetCallIDCDSTimestamp), 6U);
    EXPECT_EQ(slotOf(&CBaseCDSAPI::GetServerTickCount), 7U);
    EXPECT_EQ(slotOf(&CBaseCDSAPI::GetServerTimestamp), 8U);
}

static_assert(!std::has_virtual_destructor_v<CDSNetProxyCallback>);
static_assert(std::is_same_v<decltype(&CCDSAPI::SendCDRDataToHQ),
                             long (CCDSAPI::*)(const std::string&, const std::string&, CCallData*)>);
static_assert(std::is_same_v<decltype(&CCDSAPI::SendRcvdCDRDataToOVN), long (CCDSAPI::*)(CCallbackMsg*)>);
static_assert(std::is_same_v<decltype(&CCDSAPI::SetCDRDataCallBack), void (CCDSAPI::*)(long (*)(CCallbackMsg*))>);
static_assert(std::is_same_v<decltype(&CCDSAPI::SetCDRDataCacheSize), void (CCDSAPI::*)(unsigned long)>);
static_assert(std::is_same_v<decltype(&CCDSAPI::SetCDRDataExpiration), void (CCDSAPI::*)(unsigned long)>);
static_assert(std::is_same_v<decltype(&CCDSAPI::GetTickCountFromOtherServers), void (CCDSAPI::*)(std::string&)>);

TEST(StoreInterfaceTest, TimeQueriesKeepTheirSlots)
{
    EXPECT_EQ(slotOf(&CDSNetProxyCallback::getCallIDTimestamp), 0U);
    EXPECT_EQ(slotOf(&CDSNetProxyCallback::getCallIDCDSTimestamp), 1U);
    EXPECT_EQ(slotOf(&CDSNetProxyCallback::getServerTickCount), 2U);
    EXPECT_EQ(slotOf(&CDSNetProxyCallback::getServerTimestamp), 3U);
}

TEST(StoreInterfaceTest, AllOperationsWorkThroughTheInterface)
{
    CStoreStory story;
    CBaseCDSAPI& store = story.store();
    CNews news("sip:1");
    news.sets("CALLERID", "alice");
    CCDSTimestamp tsStamp(0, 0);

    EXPECT_THAT(store.Initialize(CStoreStory::cHere, 1), IsOk());
    EXPECT_THAT(store.Register(0, "ann", CStoreStory::cHere, "sip:1", "*", nullptr, 1), IsOk());
    EXPECT_THAT(store.Update("ann", news.data(), false), IsOk());
    EXPECT_THAT(store.Unregister("ann"), IsOk());
    EXPECT_EQ(store.GetCallIDTimestamp("sip:1"), CFakeClock::cInitialFileTime);
    EXPECT_THAT(store.GetCallIDCDSTimestamp("sip:1", &tsStamp), IsOk());
    EXPECT_EQ(store.GetServerTickCount(0), CFakeClock::cInitialTicks);
    EXPECT_EQ(store.GetServerTimestamp(0), CFakeClock::cInitialFileTime);
    EXPECT_THAT(store.Finalize(), IsOk());
}

TEST(StoreInterfaceTest, IdentifiersAreTheSystemsOwn)
{
    const CFakeWorld world;
    CFakeGuid::script({"11111111-2222-3333-4444-555555555555"});
    EXPECT_EQ(CCDSAPI::createGUID(), "11111111-2222-3333-4444-555555555555");
}

// An identifier costs the system's random source; only who asks for one pays.
TEST(StoreInterfaceTest, NothingElseMakesIdentifiers)
{
    CStoreStory story;
    CCDSAPI::initLogger();
    story.starts();
    story.registers("listener", "*", "@");
    story.registers("all", "*", "EOC");
    story.registers("ann", "sip:1");
    story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    story.updates("ann", CNews("sip:1").sets("CALLERID", "alicia").appends("CONNECT_ENTRY", "yes"));
    story.asksFor("ann", "sip:1");
    story.unregisters("ann");
    story.lets(30001);
    story.store().Dump(1);
    story.stops();
    story.ends();
    EXPECT_EQ(CFakeGuid::calls(), 0U);
    (void)CCDSAPI::createGUID();
    EXPECT_EQ(CFakeGuid::calls(), 1U);
}

TEST(StoreInterfaceTest, IdentifiersDiffer)
{
    EXPECT_NE(CCDSAPI::createGUID(), CCDSAPI::createGUID());
}

} // namespace
