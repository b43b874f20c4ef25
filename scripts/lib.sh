# What the scripts of this folder share. Sourced, with `set -euo pipefail` in force.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
jobs=$(getconf _NPROCESSORS_ONLN)

if [ -t 1 ]; then
    bold=$(printf '\033[1m') green=$(printf '\033[32m') red=$(printf '\033[31m') plain=$(printf '\033[0m')
else
    bold='' green='' red='' plain=''
fi

say() { printf '%s\n' "$*"; }
headline() { printf '\n%s%s%s\n' "$bold" "$*" "$plain"; }
fail() {
    printf '%s%s%s\n' "$red" "$*" "$plain" >&2
    exit 1
}

as_root() {
    if [ "$(id -u)" = 0 ]; then
        "$@"
    elif command -v sudo > /dev/null; then
        sudo "$@"
    else
        fail "This needs root: $*"
    fi
}

# The packages of one purpose: build, test, bench, check.
debian_packages() {
    case $1 in
        build) echo g++ cmake ninja-build libcli11-dev libfuse3-dev fuse3 pkgconf ;;
        test) echo libgtest-dev libgmock-dev git procps rsync openssh-sftp-server ;;
        bench) echo libbenchmark-dev libgtest-dev libgmock-dev openssh-sftp-server ;;
        bench-mount) echo sshfs openssh-sftp-server git ;;
        check) echo clang lld llvm libclang-rt-dev clang-format-14 clang-tidy-14 libbenchmark-dev ;;
    esac
}
brew_packages() {
    case $1 in
        build) echo cmake ninja cli11 ;;
        test) echo googletest pkgconf ;;
        bench) echo google-benchmark googletest ;;
        check) echo llvm@14 google-benchmark node ;;
    esac
}

# Installs what is missing for the purposes named.
install_packages() {
    local purpose wanted=()
    case $(. /etc/os-release 2> /dev/null && echo "$ID ${ID_LIKE:-}" || uname) in
        *debian* | *ubuntu*)
            for purpose in "$@"; do wanted+=($(debian_packages "$purpose")); done
            apt_install "${wanted[@]}"
            # Whoever has an npm of another origin keeps it.
            if [[ " $* " == *' check '* ]] && ! command -v npm > /dev/null; then apt_install npm; fi
            ;;
        Darwin)
            command -v brew > /dev/null || fail 'Please install Homebrew, or by hand: cmake ninja cli11'
            for purpose in "$@"; do wanted+=($(brew_packages "$purpose")); done
            brew_install "${wanted[@]}"
            ;;
        *)
            for purpose in "$@"; do wanted+=($(debian_packages "$purpose")); done
            fail_unless_told "${wanted[@]}"
            ;;
    esac
    need_cmake
}

apt_install() {
    local package missing=()
    for package in "$@"; do
        dpkg-query -W -f='${db:Status-Status}\n' "$package" 2> /dev/null | grep -qx installed ||
            missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    headline "Installing ${missing[*]}"
    as_root apt-get -qq -o Acquire::Retries=3 update
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -o Acquire::Retries=3 \
        -o Dpkg::Use-Pty=0 install -y --no-install-recommends "${missing[@]}" > /dev/null
}

brew_install() {
    local package missing=()
    for package in "$@"; do
        brew list --formula "$package" > /dev/null 2>&1 || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    headline "Installing ${missing[*]}"
    brew install --quiet "${missing[@]}"
}

# A system without a package manager that we know: the reader installs, and says so.
fail_unless_told() {
    [ -n "${ZFD_PACKAGES_ARE_THERE:-}" ] && return
    say "This script installs packages on Debian, Ubuntu and macOS only. Please install what these"
    say "Debian packages hold, then run it again with ZFD_PACKAGES_ARE_THERE=1:"
    say "    $*"
    exit 1
}

need_cmake() {
    local version
    version=$(cmake --version | sed -n '1s/[^0-9]*//p')
    [ "$(printf '3.25\n%s\n' "$version" | sort -V | head -n 1)" = 3.25 ] ||
        fail "CMake 3.25 or later is needed; this system has $version."
}

# Runs a step of a preset with its output in a file, which is shown when something goes wrong.
logged() {
    local preset=$1 log=build/$1.log
    shift
    mkdir -p build
    "$@" >> "$log" 2>&1 || {
        tail -n 60 "$log" >&2
        fail "The build of preset $preset failed; the whole output is in $log."
    }
}

# What comes behind the preset's name goes to the configure step.
configure() {
    local preset=$1
    shift
    rm -f "build/$preset.log"
    logged "$preset" cmake --preset "$preset" "$@"
}

# Precompiled headers halve the time of a full build, and compiling files in dozens halves it again. The
# files of a target share their unnamed namespace then, so what stands in it has a name of its own.
build() {
    local preset=$1
    shift
    configure "$preset" -DZFD_PRECOMPILE_HEADERS=ON -DCMAKE_UNITY_BUILD=ON \
        -DCMAKE_UNITY_BUILD_BATCH_SIZE=12 "$@"
    logged "$preset" cmake --build --preset "$preset"
}

# Runs the tests of a preset, several at a time for each processor: many of them wait, though less so under a
# sanitizer. With ZFD_SKIPS=forbid a test that was skipped counts as failed.
run_tests() {
    local preset=$1 for_each=$2 log=build/$1-tests.log
    ctest --preset "$preset" -j "$((for_each * jobs))" 2>&1 | tee "$log" | grep -vE '^ *(Start +[0-9]+:|[0-9]+/[0-9]+ .* Passed )' ||
        fail "Tests of preset $preset failed; the whole output is in $log."
    local skipped
    skipped=$(grep -cE '\*\*\*(Skipped|Not Run)' "$log" || true)
    [ "$skipped" = 0 ] && return
    say "$skipped tests of preset $preset were skipped."
    [ "${ZFD_SKIPS:-allow}" = allow ] || fail 'No test may be skipped here.'
}
