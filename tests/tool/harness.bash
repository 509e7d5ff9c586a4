# Shared by the plim tool's test scripts, which source it with their own arguments:
#   source "$(dirname "$0")/harness.bash" "$@"    (arguments: <path to plim> <scratch dir>)
# It sets $plim and $scratch, empties the scratch folder, counts failed checks with fail(), and
# finish() ends the script, exiting 1 when any check failed.
set -u
plim=$1
scratch=$2
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }
finish() {
    if [ $failures -ne 0 ]; then
        echo "$failures check(s) failed" >&2
        exit 1
    fi
    echo "$1"
}

rm -rf "$scratch"
mkdir -p "$scratch"
