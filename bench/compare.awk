# Reads the benchmark programs' CSV reports; prints figures, limits, ratios and targets. Used by scripts/bench.

BEGIN { FS = "," }

{ gsub(/"/, "") }

# Each report begins with the columns' names; counters add columns of their own.
$1 == "name" {
    delete column
    for (i = 1; i <= NF; ++i)
        column[$i] = i
    next
}

# "BM_Subject_What/size" with the case's settings behind it, or "..._median" and the like behind all: those are left out.
$1 ~ /^BM_/ && $1 !~ /_(mean|median|stddev|cv)$/ {
    name = $1
    gsub(/\/(manual_time|iterations:[0-9]+|repeats:[0-9]+)/, "", name)
    if (column["bytes_per_call"] && $(column["bytes_per_call"]) != "") {
        value = $(column["bytes_per_call"])
        unit[name] = "B"
    } else {
        unit[name] = "ns"
        # Where two threads take part the case keeps the time itself, and says how many it does at once: so many items a
        # second. All others are one thread's work: processor time, which a busy machine disturbs least.
        if (column["items_per_second"] && $(column["items_per_second"]) != "")
            value = 1e9 / $(column["items_per_second"])
        else
            value = nanoseconds($(column["cpu_time"]), $(column["time_unit"]))
    }
    values[name, ++runs[name]] = value + 0
}

function nanoseconds(time, timeUnit)
{
    return time * (timeUnit == "ns" ? 1 : timeUnit == "us" ? 1e3 : timeUnit == "ms" ? 1e6 : 1e9)
}

# The value below which a part of the runs lies.
function quantile(name, part,    n, i, j, v, sorted, at, low)
{
    n = runs[name]
    for (i = 1; i <= n; ++i) {
        v = values[name, i]
        for (j = i - 1; j >= 1 && sorted[j] > v; --j)
            sorted[j + 1] = sorted[j]
        sorted[j + 1] = v
    }
    at = 1 + (n - 1) * part
    low = int(at)
    return low >= n ? sorted[n] : sorted[low] + (at - low) * (sorted[low + 1] - sorted[low])
}

function median(name) { return quantile(name, 0.5) }
function spread(name)
{
    return median(name) > 0 ? 100 * (quantile(name, 0.75) - quantile(name, 0.25)) / 2 / median(name) : 0
}

function heading(text)
{
    printf "\n%-46s %12s %5s   %-36s %12s %5s %8s\n", text, "figure", "+-%", "limit", "", "+-%", "ratio"
}

# A figure and its limit: how many times the limit it is.
function compare(figure, limit)
{
    if (!(figure in unit) || !(limit in unit))
        return
    printf "%-46s %9.1f %-2s %5.1f   %-36s %9.1f %-2s %5.1f %8.2f\n", substr(figure, 4), median(figure), unit[figure],
        spread(figure), substr(limit, 4), median(limit), unit[limit], spread(limit), median(figure) / median(limit)
}

# at: "least" or "most".
function target(text, value, at, bound,    reached)
{
    reached = at == "least" ? value >= bound : value <= bound
    missed += !reached
    targets = targets sprintf("%-66s %8.2f   at %-5s %7.2f   %s\n", text, value, at, bound,
        reached ? "reached" : "NOT REACHED")
}

function comparePairs(title, list,    pairs, n, i, pair)
{
    n = split(list, pairs, " ")
    for (i = 1; i <= n; ++i) {
        split(pairs[i], pair, ":")
        if (("BM_" pair[1]) in unit) {
            if (title != "")
                heading(title)
            title = ""
            compare("BM_" pair[1], "BM_" pair[2])
        }
    }
}

END {
    comparePairs("Parameter list, against memcpy of its text", "Params_Encode/8:Params_Memcpy/8 " \
        "Params_Encode/64:Params_Memcpy/64 Params_Encode/512:Params_Memcpy/512 Params_Decode/8:Params_Memcpy/8 " \
        "Params_Decode/64:Params_Memcpy/64 Params_Decode/512:Params_Memcpy/512 " \
        "Params_EncodeBytes/24:Params_MemcpyBytes/24 Params_EncodeBytes/4096:Params_MemcpyBytes/4096 " \
        "Params_DecodeBytes/24:Params_MemcpyBytes/24 Params_DecodeBytes/4096:Params_MemcpyBytes/4096")
    comparePairs("Record, against a copy", "Record_Serialize/1:Record_CopyText/1 " \
        "Record_Serialize/100:Record_CopyText/100 Record_Parse/1:Record_CopyText/1 " \
        "Record_Parse/100:Record_CopyText/100 Record_Clone/1:Record_CopyBare/1 Record_Clone/100:Record_CopyBare/100 " \
        "Record_Filter/1:Record_CopyBare/1 Record_Filter/100:Record_CopyBare/100 " \
        "Record_Merge/1:Record_CopyBare/1 Record_Merge/100:Record_CopyBare/100")
    comparePairs("Update, against the bare program", "Update_Existing/1000:Update_Bare/1000 " \
        "Update_Existing/10000:Update_Bare/10000 Update_ExistingUntraced/1000:Update_Bare/1000")
    comparePairs("Trace line, against the logging library alone", "Trace_Line:Trace_Spdlog")
    comparePairs("Registration, against two maps", "Registration_Register/1000:Registration_Bare/1000 " \
        "Registration_Register/1000000:Registration_Bare/1000000")
    comparePairs("Registration, against the same among 1,000", \
        "Registration_Register/1000000:Registration_Register/1000 " \
        "Registration_Unregister/1000000:Registration_Unregister/1000")
    comparePairs("Memory for each stored call, against the bare program", \
        "Memory_StoredCall/100000:Memory_BareCall/100000 Memory_StoredCallRegistered/100000:Memory_BareCall/100000")

    comparePairs("Records of finished calls, durable, against the database's own inserts", \
        "Cdr_Sqlite:Cdr_SqliteBare Cdr_Postgres:Cdr_PostgresBare")

    update = "BM_Update_Existing/1000"
    bare = "BM_Update_Bare/1000"
    many = "BM_Registration_Register/1000000"
    few = "BM_Registration_Register/1000"
    stored = "BM_Memory_StoredCall/100000"
    if ((update in unit) && (bare in unit))
        target("Rate of updates, in parts of the bare program's", median(bare) / median(update), "least", 0.3)
    if ((many in unit) && (few in unit))
        target("Registering among 1,000,000, in times of among 1,000", median(many) / median(few), "most", 2.5)
    if (stored in unit)
        target("Bytes for each stored call", median(stored), "most", 1000)
    if (targets != "")
        printf "\n%-66s %8s   %s\n%s", "Target", "figure", "bound", targets
    if (update in unit)
        printf "\nUpdates a second: %.0f through the store, %.0f through the bare program\n", 1e9 / median(update),
            1e9 / median(bare)
    exit missed > 0
}
