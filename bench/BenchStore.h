#pragma once

#include "CDSAPI.h"

#include <cstdint>
#include <memory>
#include <string>

/// The real store for one benchmark, with its trace log in the benchmarks' own directory. It is not started: no thread
/// of its own runs beside what is measured, and it has no peers, as the bare program has none.
class CBenchStore
{
public:
    /// The trace mask that a host has when it configures nothing.
    static constexpr std::uint32_t cDefaultMask = 3;

    /// Makes a store with one component that updates calls.
    CBenchStore();

    CCDSAPI& operator*() const { return *m_pStore; }
    CCDSAPI* operator->() const { return m_pStore.get(); }

    /// Registers a component that is told of every change of a call, or of all calls ("*").
    void watch(const std::string& sCallID);

    /// Makes a record of the sample call's update and hands it in.
    ///
    /// @param bCheckRegistrants  whether a call without registrants of its own is refused
    /// @return false when the store refuses it
    bool update(const std::string& sCallID, std::uint64_t ullUpdate, bool bCheckRegistrants);

    /// Frees all calls' data. Registrations stay.
    void forgetCalls();

    /// Changes that were delivered in this process.
    static std::uint64_t delivered() { return s_ullDelivered; }
    static long onChange(CCallbackMsg* pMessage);

    static void setTraceMask(std::uint32_t dwMask);

private:
    static std::uint64_t s_ullDelivered;

    std::unique_ptr<CCDSAPI> m_pStore;
    std::string m_sWriter = "writer";
    std::uint64_t m_ullWatchers = 0;
};
