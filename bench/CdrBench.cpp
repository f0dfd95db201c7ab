// Records of finished calls into a database, through the collecting server's sink and through the database's own
// prepared insert. Both write the same columns, a transaction for each record, on disk before the next begins.
//
// The clock runs from the message that the store hands over until it is gone; the bare insert gets rows that are made.

#include "BenchStore.h"
#include "CdrWorld.h"
#include "SampleCall.h"
#include "cdr/CdrSchema.h"
#include "cdr/CdrSink.h"
#include "cdr/CdrText.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <sqlite3.h>
#include <vector>
#ifdef CDS_HAVE_POSTGRES
#include <pqxx/pqxx>
#endif

namespace {

constexpr std::uint64_t cRecords = 100; // between two looks at the clock
constexpr std::uint64_t cEntries = 4;

using CClock = std::chrono::steady_clock;

std::uint64_t g_ullCalls = 0; // each record is of a call of its own

void fillFinished(CCallData& record)
{
    for (std::uint64_t i = 0; i < cEntries; ++i)
        SampleCall::fill(record, i);
}

template <class TRun> void measure(benchmark::State& state, const TRun& fnRun)
{
    for (auto _ : state)
        state.SetIterationTime(std::chrono::duration<double>(fnRun()).count());
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(cRecords));
}

void throughSink(benchmark::State& state, const std::string& sUrl)
{
    const CTemporaryDirectory directory;
    std::string sError;
    const auto pDatabase = openCdrDatabase(sUrl, ECdrOpen::write, &sError);
    CRefusedCdrs refused(directory.file("refused"), {});
    if (pDatabase == nullptr || !refused.open(&sError))
    {
        state.SkipWithError(sError.c_str());
        return;
    }
    CCdrSink sink(*pDatabase, refused, [](ECdrEvent, const std::string&) {});
    measure(state, [&] {
        std::vector<CCallbackMsg*> vecMessages;
        for (std::uint64_t i = 0; i < cRecords; ++i)
        {
            auto* const pRecord = new CCallData(SampleCall::callID(++g_ullCalls));
            fillFinished(*pRecord);
            vecMessages.push_back(new CCallbackMsg(0UL, "", ccbr_cdrcalldata, pRecord, 0, "10.0.0.1"));
        }
        const auto tpStart = CClock::now();
        for (CCallbackMsg* const pMsg : vecMessages)
            if (sink.take(pMsg) < 0) // then it is left behind
                state.SkipWithError("refused");
        return CClock::now() - tpStart;
    });
    if (sink.counts().ullStored != sink.counts().ullReceived)
        state.SkipWithError("not every record was stored");
}

std::vector<CCdrRow> someRows()
{
    std::vector<CCdrRow> vecRows;
    for (std::uint64_t i = 0; i < cRecords; ++i)
    {
        CCallData record(SampleCall::callID(++g_ullCalls));
        fillFinished(record);
        vecRows.push_back(makeCdrRow(record, "10.0.0.1", CdrText::now()));
    }
    return vecRows;
}

void BM_Cdr_Sqlite(benchmark::State& state)
{
    const CTemporaryDirectory directory;
    throughSink(state, directory.file("cdr.db"));
}
BENCHMARK(BM_Cdr_Sqlite)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_Cdr_SqliteBare(benchmark::State& state)
{
    const CTemporaryDirectory directory;
    std::string sError;
    (void)openCdrDatabase(directory.file("cdr.db"), ECdrOpen::write, &sError); // makes the table
    sqlite3* pConnection = nullptr;
    sqlite3_stmt* pInsert = nullptr;
    const auto number = [](std::size_t uNumber, const CCdrColumn*) { return "?" + std::to_string(uNumber); };
    const std::string sInsert = CdrSchema::insertText(number, "0");
    if (sqlite3_open(directory.file("cdr.db").c_str(), &pConnection) != SQLITE_OK ||
        sqlite3_exec(pConnection, "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL", nullptr, nullptr, nullptr) !=
            SQLITE_OK ||
        sqlite3_prepare_v2(pConnection, sInsert.c_str(), -1, &pInsert, nullptr) != SQLITE_OK)
        state.SkipWithError(sqlite3_errmsg(pConnection));
    else
        measure(state, [&] {
            const auto vecRows = someRows();
            const auto tpStart = CClock::now();
            for (const CCdrRow& row : vecRows)
            {
                int nParameter = 0;
                for (const CCdrColumn& column : g_aCdrColumns)
                {
                    const std::string& sValue = row.*column.psValue;
                    (void)sqlite3_bind_text64(pInsert, ++nParameter, sValue.data(), sValue.size(), SQLITE_STATIC,
                                              SQLITE_UTF8);
                }
                (void)sqlite3_bind_blob64(pInsert, ++nParameter, row.sRecord.data(), row.sRecord.size(), SQLITE_STATIC);
                if (sqlite3_step(pInsert) != SQLITE_DONE)
                    state.SkipWithError(sqlite3_errmsg(pConnection));
                (void)sqlite3_reset(pInsert); // it repeats the step's code
            }
            return CClock::now() - tpStart;
        });
    (void)sqlite3_finalize(pInsert);
    (void)sqlite3_close(pConnection);
}
BENCHMARK(BM_Cdr_SqliteBare)->UseManualTime()->Unit(benchmark::kMillisecond);

#ifdef CDS_HAVE_POSTGRES

/// One server for all cases, with an empty database for each; gone with the program.
std::string emptyDatabase()
{
    static CPostgresServer s_server;
    return makeCdrWorld(&s_server)->url();
}

void BM_Cdr_Postgres(benchmark::State& state)
{
    throughSink(state, emptyDatabase());
}

void BM_Cdr_PostgresBare(benchmark::State& state)
{
    std::string sError;
    const std::string sUrl = emptyDatabase();
    (void)openCdrDatabase(sUrl, ECdrOpen::write, &sError); // makes the table
    const auto number = [](std::size_t uNumber, const CCdrColumn* pColumn) {
        const bool bTime = pColumn != nullptr && pColumn->eKind == CCdrColumn::EKind::time;
        const std::string sParameter = "$" + std::to_string(uNumber);
        return bTime ? "NULLIF(" + sParameter + "::text, '')::timestamptz" : sParameter;
    };
    pqxx::connection connection(sUrl);
    connection.prepare("bare", CdrSchema::insertText(number, "0"));
    measure(state, [&] {
        std::vector<std::vector<std::string>> vecValues;
        for (const CCdrRow& row : someRows())
        {
            vecValues.emplace_back();
            for (const CCdrColumn& column : g_aCdrColumns)
                vecValues.back().push_back(row.*column.psValue);
            vecValues.back().push_back(
                connection.esc_raw(reinterpret_cast<const unsigned char*>(row.sRecord.data()), row.sRecord.size()));
        }
        const auto tpStart = CClock::now();
        pqxx::nontransaction work(connection);
        for (const auto& vecRow : vecValues)
            (void)work.exec_prepared("bare", pqxx::prepare::make_dynamic_params(vecRow));
        return CClock::now() - tpStart;
    });
}

const bool g_bPostgres = [] {
    if (const std::string sWhyNot = CPostgresServer::whyNot(); !sWhyNot.empty())
    {
        (void)std::fprintf(stderr, "PostgreSQL is left out: %s\n", sWhyNot.c_str());
        return false;
    }
    for (benchmark::internal::Benchmark* const pCase :
         {benchmark::RegisterBenchmark("BM_Cdr_Postgres", BM_Cdr_Postgres),
          benchmark::RegisterBenchmark("BM_Cdr_PostgresBare", BM_Cdr_PostgresBare)})
        pCase->UseManualTime()->Unit(benchmark::kMillisecond);
    return true;
}();

#endif

} // namespace
