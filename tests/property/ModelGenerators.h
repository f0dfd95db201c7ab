#pragma once

#include "ModelSupport.h"

#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

// Generated values of the data model. Names and stamps come from a few, so that they meet often, and sometimes from
// everywhere.

inline std::ostream& operator<<(std::ostream& out, const CCDSTimestamp& tsStamp)
{
    PrintTo(tsStamp, &out);
    return out;
}

namespace model {

/// A write to a record.
struct SWrite
{
    bool bLog = false;
    std::string sName;
    std::string sValue;
    CCDSTimestamp tsStamp{0, 0};
};

inline std::ostream& operator<<(std::ostream& out, const SWrite& write)
{
    out << (write.bLog ? "log " : "property ");
    PrintTo(SItem{write.sName, write.sValue, write.tsStamp}, &out);
    return out;
}

inline std::ostream& operator<<(std::ostream& out, const SItem& item)
{
    PrintTo(item, &out);
    return out;
}

inline rc::Gen<std::string> genBytes()
{
    return rc::gen::container<std::string>(rc::gen::arbitrary<char>());
}

inline rc::Gen<std::string> genName()
{
    const auto genFew = rc::gen::element<std::string>("A", "B", "AB", "QUEUE_CALL", "QUEUE_STEP", "a;b", "");
    return rc::gen::weightedOneOf<std::string>({{9, genFew}, {1, genBytes()}});
}

inline rc::Gen<CCDSTimestamp> genStamp()
{
    const auto genFew =
        rc::gen::construct<CCDSTimestamp>(rc::gen::inRange<unsigned long long>(0, 5), rc::gen::inRange<long>(-1, 2));
    const auto genAny = rc::gen::construct<CCDSTimestamp>(rc::gen::arbitrary<unsigned long long>(),
                                                          rc::gen::cast<long>(rc::gen::arbitrary<std::int32_t>()));
    return rc::gen::weightedOneOf<CCDSTimestamp>({{4, genFew}, {1, genAny}});
}

/// Applies the writes, taken or not.
inline void apply(CCallData& record, const std::vector<SWrite>& vecWrites)
{
    for (const auto& [bLog, sName, sValue, tsStamp] : vecWrites)
        (void)(bLog ? add(record, sName, sValue, tsStamp) : put(record, sName, sValue, tsStamp));
}

/// A record of one call with these writes.
inline std::unique_ptr<CCallData> recordOf(const std::vector<SWrite>& vecWrites)
{
    auto pRecord = std::make_unique<CCallData>("sip:4711");
    apply(*pRecord, vecWrites);
    return pRecord;
}

} // namespace model

namespace rc {

template <> struct Arbitrary<CCDSTimestamp>
{
    static Gen<CCDSTimestamp> arbitrary() { return model::genStamp(); }
};

template <> struct Arbitrary<model::SWrite>
{
    static Gen<model::SWrite> arbitrary()
    {
        return gen::build<model::SWrite>(
            gen::set(&model::SWrite::bLog), gen::set(&model::SWrite::sName, model::genName()),
            gen::set(&model::SWrite::sValue, model::genBytes()), gen::set(&model::SWrite::tsStamp, model::genStamp()));
    }
};

} // namespace rc
