// What holds for filter, merge, clone and the text form of any record.

#include "ModelGenerators.h"

#include <algorithm>

using namespace model;

namespace {

using CWrites = std::vector<SWrite>;

bool merged(CCallData& record, CCallData& from)
{
    bool bChanged = false;
    RC_ASSERT(record.merge(&from, &bChanged) == 0);
    return bChanged;
}

bool hasForced(const CWrites& vecWrites)
{
    return std::any_of(vecWrites.begin(), vecWrites.end(),
                       [](const SWrite& write) { return !write.bLog && write.tsStamp == at(0); });
}

/// The writes without those whose zero stamp forces a value in whatever is held.
CWrites unforced(CWrites vecWrites)
{
    std::erase_if(vecWrites, [](const SWrite& write) { return !write.bLog && write.tsStamp == at(0); });
    return vecWrites;
}

CWrites logsOnly(CWrites vecWrites)
{
    std::erase_if(vecWrites, [](const SWrite& write) { return !write.bLog; });
    return vecWrites;
}

} // namespace

RC_GTEST_PROP(RecordLaws, TextsReadBackAsTheyWere, (const CWrites& vecWrites))
{
    const auto pRecord = recordOf(vecWrites);
    const std::string sText = serialized(*pRecord);
    CCallData read(sText, true);
    RC_ASSERT(contentOf(read) == contentOf(*pRecord));
    RC_ASSERT(serialized(read) == sText);
    RC_ASSERT(read.getsize() == pRecord->getsize());
    RC_ASSERT(!read.changed(pRecord.get()));
}

RC_GTEST_PROP(RecordLaws, LogsReadTwiceAreHeldOnce, (const CWrites& vecWrites))
{
    const auto pRecord = recordOf(logsOnly(vecWrites)); // a repeated property stops the reading of those behind it
    CCallData read("");
    RC_ASSERT(read.deserialize(serialized(*pRecord)) == 0);
    RC_ASSERT(read.deserialize(serialized(*pRecord)) == 0);
    RC_ASSERT(contentOf(read) == contentOf(*pRecord));
    RC_ASSERT(read.getsize() == pRecord->getsize());
}

RC_GTEST_PROP(RecordLaws, AWriteIsHeldOrSomethingNewerIs, (const CWrites& vecWrites))
{
    const auto pRecord = recordOf(unforced(vecWrites));
    for (const SWrite& write : unforced(vecWrites))
    {
        CCDSTimestamp tsHeld(0, 0);
        if (write.bLog)
            RC_ASSERT(pRecord->getLogEntryExists(write.sName, write.tsStamp) == 0);
        else
        {
            RC_ASSERT(pRecord->getPropertyUpdateTimestamp(write.sName, &tsHeld) == 0);
            RC_ASSERT(tsHeld >= write.tsStamp);
        }
    }
}

RC_GTEST_PROP(RecordLaws, TheSizeIsTheSumOfTheValues, (const CWrites& vecWrites))
{
    const auto pRecord = recordOf(vecWrites);
    std::size_t uSize = 0;
    for (const SItem& item : contentOf(*pRecord))
        uSize += item.sValue.size();
    RC_ASSERT(pRecord->getsize() == uSize);
}

RC_GTEST_PROP(RecordLaws, ACloneIsEqual, (const CWrites& vecWrites))
{
    const auto pRecord = recordOf(vecWrites);
    const std::unique_ptr<CCallData> pClone(pRecord->clone());
    RC_ASSERT(contentOf(*pClone) == contentOf(*pRecord));
    RC_ASSERT(callIDOf(*pClone) == callIDOf(*pRecord));
    RC_ASSERT(pClone->getsize() == pRecord->getsize());
    RC_ASSERT(!pClone->changed(pRecord.get()));
    RC_ASSERT(!pRecord->changed(pClone.get()));
    RC_ASSERT(!filtered(*pRecord, pClone.get()).any());
}

RC_GTEST_PROP(RecordLaws, FilteringAgainstNothingIsCloning, (const CWrites& vecWrites))
{
    const auto pRecord = recordOf(vecWrites);
    const SFiltered all = filtered(*pRecord, nullptr);
    RC_ASSERT(all.lResult == 0);
    RC_ASSERT(all.any() != contentOf(*pRecord).empty());
    if (all.any())
        RC_ASSERT(contentOf(*all.pRecord) == contentOf(*pRecord));
}

RC_GTEST_PROP(RecordLaws, MergingTwiceIsMergingOnce, (const CWrites& vecHeld, const CWrites& vecNew))
{
    const auto pHeld = recordOf(vecHeld);
    const auto pNew = recordOf(vecNew);
    (void)merged(*pHeld, *pNew);
    const std::string sOnce = serialized(*pHeld);
    const bool bChanged = merged(*pHeld, *pNew);
    RC_ASSERT(serialized(*pHeld) == sOnce);
    if (!hasForced(vecNew)) // those are written every time
        RC_ASSERT(!bChanged);
}

RC_GTEST_PROP(RecordLaws, NothingIsNewAfterMerging, (const CWrites& vecHeld, const CWrites& vecNew))
{
    const auto pHeld = recordOf(vecHeld);
    const auto pNew = recordOf(vecNew);
    (void)merged(*pHeld, *pNew);
    const SFiltered rest = filtered(*pNew, pHeld.get());
    RC_ASSERT(rest.lResult == 0);
    RC_ASSERT(!rest.any());
}

RC_GTEST_PROP(RecordLaws, TheDifferenceMergedIntoTheOldStateGivesTheNew,
              (const CWrites& vecHeld, const CWrites& vecNew))
{
    const auto pOld = recordOf(vecHeld);
    const auto pNewState = recordOf(vecHeld);
    const auto pIncoming = recordOf(unforced(vecNew)); // a forced value is merged, but in no difference
    const SFiltered difference = filtered(*pIncoming, pOld.get());
    const bool bChanged = merged(*pNewState, *pIncoming);
    RC_ASSERT(bChanged == difference.any());
    if (difference.any())
        RC_ASSERT(merged(*pOld, *difference.pRecord));
    RC_ASSERT(serialized(*pOld) == serialized(*pNewState));
}

RC_GTEST_PROP(RecordLaws, ADifferenceHoldsOnlyWhatWasBrought, (const CWrites& vecHeld, const CWrites& vecNew))
{
    const auto pHeld = recordOf(vecHeld);
    const auto pNew = recordOf(vecNew);
    const SFiltered difference = filtered(*pNew, pHeld.get());
    RC_PRE(difference.any());
    const std::vector<SItem> vecBrought = contentOf(*pNew);
    for (const SItem& item : contentOf(*difference.pRecord))
        RC_ASSERT(std::find(vecBrought.begin(), vecBrought.end(), item) != vecBrought.end());
}

RC_GTEST_PROP(RecordLaws, MergingTellsWhetherSomethingChanged, (const CWrites& vecHeld, const CWrites& vecNew))
{
    const auto pHeld = recordOf(vecHeld);
    const std::string sBefore = serialized(*pHeld);
    const bool bChanged = merged(*pHeld, *recordOf(unforced(vecNew)));
    RC_ASSERT(bChanged == (serialized(*pHeld) != sBefore));
}

RC_GTEST_PROP(RecordLaws, TheOrderOfMergesDoesNotMatter, (CWrites vecLeft, CWrites vecRight))
{
    // Where a stamp names a value, as stamps do that one clock gives.
    vecLeft = unforced(std::move(vecLeft));
    vecRight = unforced(std::move(vecRight));
    for (CWrites* const pWrites : {&vecLeft, &vecRight})
        for (SWrite& write : *pWrites)
            write.sValue = write.sName + write.tsStamp.toString();
    const auto pLeftFirst = recordOf(vecLeft);
    const auto pRightFirst = recordOf(vecRight);
    (void)merged(*pLeftFirst, *recordOf(vecRight));
    (void)merged(*pRightFirst, *recordOf(vecLeft));
    RC_ASSERT(contentOf(*pLeftFirst) == contentOf(*pRightFirst));
}

RC_GTEST_PROP(RecordLaws, ReadingSinceAStampSkipsWhatIsOlder, (const CWrites& vecWrites, const CCDSTimestamp& tsSince))
{
    const auto pRecord = recordOf(vecWrites);
    const auto notOlder = [&](std::vector<SItem> vecItems) {
        std::erase_if(vecItems, [&](const SItem& item) { return item.tsStamp < tsSince; });
        return vecItems;
    };
    RC_ASSERT(propertiesOf(*pRecord, tsSince) == notOlder(propertiesOf(*pRecord)));
    for (const std::string& sLog : logNamesOf(*pRecord))
        RC_ASSERT(entriesOf(*pRecord, sLog, false, tsSince) == notOlder(entriesOf(*pRecord, sLog)));
}
