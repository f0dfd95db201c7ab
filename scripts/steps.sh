# Read by run, test and .ci/run: steps whose output goes to a log, and the counts of test runs.
# shellcheck shell=bash

top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
logs=$top/build/logs
mkdir -p "$logs"

# step <name> <command>...: runs the command with its output in build/logs/<name>.log. When it fails, says so, shows
# the log's end and returns the command's result.
step()
{
    local name=$1 log=$logs/$1.log start=$SECONDS result=0
    shift
    printf '%s ... ' "$name"
    "$@" >"$log" 2>&1 </dev/null || result=$?
    if [ $result -eq 0 ]; then
        printf 'done (%d s)\n' $((SECONDS - start))
    else
        printf 'FAILED with %d after %d s\n' $result $((SECONDS - start))
        tail -n 60 "$log" | sed 's/^/    /'
        printf '%s failed; the whole log is %s\n' "$name" "$log"
    fi
    return $result
}

# junit_counts <file>: prints "<tests> <failed> <not run>" of a test run that CTest recorded.
junit_counts()
{
    local attributes
    attributes=$(tr '\n\t' '  ' <"$1" | grep -o '<testsuite [^>]*>' | head -n 1)
    value() { printf '%s' "$attributes" | sed -n "s/.* $1=\"\([0-9]*\)\".*/\1/p"; }
    local tests failures disabled skipped
    tests=$(value tests) failures=$(value failures) disabled=$(value disabled) skipped=$(value skipped)
    echo "${tests:-0} ${failures:-0} $((${disabled:-0} + ${skipped:-0}))"
}
