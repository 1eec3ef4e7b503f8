# shellcheck shell=bash disable=SC2034 # the lists of packages are used by those who source this
# What ./test, ./demo, ./benchmark and .ci/run share. Sourced by them; they may be called from any directory.

set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
program=${program:-$(basename "$0")} # how messages name the caller
jobs=$(nproc)
export CXX=${CXX:-g++}

build_packages=(g++ cmake ninja-build libcli11-dev)
test_packages=("${build_packages[@]}" libgtest-dev pkg-config iso-codes shared-mime-info locales relacy-dev libpugixml-dev
    libxml2-utils python3 gdb)
package_packages=(doxygen python3 gdb lintian)
bench_packages=("${build_packages[@]}" libbenchmark-dev libpugixml-dev librapidxml-dev libtinyxml2-dev
    libexpat1-dev libxml2-dev libboost-dev libtbb-dev libspdlog-dev libfmt-dev qtbase5-dev libboost-serialization-dev
    iso-codes shared-mime-info)

say() { printf -- '-- %s\n' "$*"; }

die() {
    printf '%s: %s\n' "$program" "$*" >&2
    exit 1
}

# A tool counts as there when it can be called, wherever it comes from; a library when its package is installed.
have_package() {
    case $1 in
        ninja-build) command -v ninja ;;
        clang) command -v clang++ ;;
        g++ | cmake | pkg-config | clang-format | clang-tidy | python3 | doxygen | gdb | lintian) command -v "$1" ;;
        *) dpkg-query --show --showformat='${db:Status-Status}\n' "$1" 2>&1 | grep -qx installed ;;
    esac >/dev/null
}

# Sets `missing` to those of the given packages that are not there.
find_missing() {
    missing=()
    local package
    for package in "$@"; do
        have_package "$package" || missing+=("$package")
    done
}

# Installs those of the given packages that are missing. Calls apt only when there are any.
need() {
    local missing install log
    find_missing "$@"
    [[ ${#missing[@]} -gt 0 ]] || return 0

    local -a as_root=(env)
    if [[ $(id -u) -ne 0 ]]; then
        command -v sudo >/dev/null || die "needs these packages, and neither root nor sudo is at hand: ${missing[*]}"
        as_root=(sudo env)
    fi
    command -v apt-get >/dev/null || die "needs these packages, and there is no apt-get: ${missing[*]}"
    as_root+=(DEBIAN_FRONTEND=noninteractive)

    say "Installing ${missing[*]}"
    log=$(mktemp)
    install=("${as_root[@]}" apt-get install -y --no-install-recommends -o DPkg::Lock::Timeout=120 "${missing[@]}")
    if ! "${install[@]}" >"$log" 2>&1; then
        say "Updating the package lists, then once more"
        if ! { "${as_root[@]}" apt-get update && "${install[@]}"; } >"$log" 2>&1; then
            tail -n 20 "$log" >&2
            rm -f "$log"
            die "cannot install ${missing[*]}"
        fi
    fi
    rm -f "$log"

    find_missing "${missing[@]}"
    [[ ${#missing[@]} -eq 0 ]] || die "installed, but cannot be found on PATH: ${missing[*]}"
}

# clang with the run-times of its sanitizers and of libFuzzer, which Debian packages by version.
need_clang() {
    need clang
    need "libclang-rt-$(clang++ -dumpversion | cut -d. -f1)-dev"
}

# unpack_foreign ARCHITECTURE PACKAGE...: unpacks packages of another architecture into build/foreign/ARCHITECTURE. The
# system's own state of packages is not asked and not touched: that would need their whole set of dependencies.
unpack_foreign() {
    local architecture=$1 folder=$root/build/foreign/$1 state log
    shift
    ! grep -qsxF "$*" "$folder/unpacked" || return 0
    say "Unpacking $* for $architecture"
    state=$(mktemp -d)
    log=$state/log
    mkdir -p "$folder" "$state/lists/partial" "$state/archives/partial"
    touch "$state/status"
    local -a apt=(apt-get -o "APT::Architecture=$architecture" -o "APT::Architectures=$architecture"
        -o "Dir::State::lists=$state/lists" -o "Dir::State::status=$state/status" -o "Dir::Cache=$state"
        -o "Dir::Cache::archives=$state/archives" -o "APT::Sandbox::User=")
    # A list that is out of order does not matter when the packages can be had all the same.
    if ! { "${apt[@]}" update || true; (cd "$state" && "${apt[@]}" download "$@"); } >"$log" 2>&1; then
        tail -n 20 "$log" >&2
        rm -rf "$state"
        die "cannot get $* for $architecture"
    fi
    local package
    for package in "$state"/*.deb; do
        dpkg-deb --extract "$package" "$folder" || die "cannot unpack $package"
    done
    printf '%s\n' "$*" >>"$folder/unpacked"
    rm -rf "$state"
}

# unpack_source PACKAGE: unpacks a package's source as its authors made it into build/foreign/source/PACKAGE, from where
# the system has its packages.
unpack_source() {
    local package=$1 folder=$root/build/foreign/source/$1 state list
    [[ ! -d $folder ]] || return 0
    say "Unpacking the source of $package"
    state=$(mktemp -d)
    mkdir -p "$state/lists/partial" "$state/parts" "$state/unpacked"
    for list in /etc/apt/sources.list.d/*.sources; do
        [[ ! -e $list ]] || sed -E 's/^Types:.*/Types: deb-src/' "$list" >"$state/parts/${list##*/}"
    done
    for list in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
        [[ ! -e $list ]] || sed -E 's/^deb /deb-src /' "$list" >"$state/parts/$(basename "$list" .list).list"
    done
    local -a apt=(apt-get -o "Dir::Etc::sourceparts=$state/parts" -o Dir::Etc::sourcelist=/dev/null
        -o "Dir::State::lists=$state/lists" -o "Dir::Cache=$state" -o "APT::Sandbox::User=")
    if ! { "${apt[@]}" update || true; (cd "$state" && "${apt[@]}" source --download-only "$package"); } \
        >"$state/log" 2>&1; then
        tail -n 20 "$state/log" >&2
        rm -rf "$state"
        die "cannot get the source of $package"
    fi
    tar --extract --file "$state"/*.orig.tar.* --directory "$state/unpacked" --strip-components 1
    mkdir -p "$(dirname "$folder")"
    mv "$state/unpacked" "$folder"
    rm -rf "$state"
}

# copy_headers PACKAGE: what an installed package of headers alone has, into build/foreign/all. Beside the system's own
# headers, where they stand, another target's compiler would find those of the wrong system.
copy_headers() {
    local folder=$root/build/foreign/all
    ! grep -qsxF "$1" "$folder/unpacked" || return 0
    mkdir -p "$folder"
    dpkg -L "$1" | grep -E '^/usr/(include|share/cmake)/.*\.' | (cd / && xargs cp --parents --target-directory "$folder")
    printf '%s\n' "$1" >>"$folder/unpacked"
}

# need_wine BITS: what runs programs of that many bits for Windows (tools/wine.sh), with its settings made. The package
# of 32-bit Wine wants a system with a second architecture; where it cannot be had, its files alone do.
need_wine() {
    if [[ $1 -eq 64 ]]; then
        need wine64
    elif ! have_package wine32:i386; then
        need libc6-i386 libz-mingw-w64
        unpack_foreign i386 wine32 libwine libunwind8 liblzma5
        cp --remove-destination /usr/i686-w64-mingw32/lib/zlib1.dll \
            "$root/build/foreign/i386/usr/lib/i386-linux-gnu/wine/i386-windows/"
    fi
    [[ ! -d $root/build/wine/$1/dosdevices ]] || return 0
    say "Setting up Wine for $1 bits"
    # It complains of what no test needs, fonts for instance.
    timeout 120 "$root/tools/wine.sh" "$1" wineboot --init >/dev/null 2>&1 || true
}

# GNU libiconv for 64-bit Windows, in build/foreign/libiconv. Debian has no package of it; a module of the npm registry
# carries its source.
need_libiconv() {
    local folder=$root/build/foreign/libiconv compiler=x86_64-w64-mingw32-gcc-posix state
    [[ ! -d $folder ]] || return 0
    command -v npm >/dev/null || need npm
    say "Building GNU libiconv"
    state=$(mktemp -d)
    mkdir -p "$state"/built/{bin,lib,include}
    if ! (
        cd "$state" && npm pack --silent iconv@3.0.1 && tar --extract --file iconv-*.tgz --strip-components 1 &&
            "$compiler" -O1 -w -D ENABLE_EXTRA=1 -D ICONV_CONST=const -I support -shared -o built/bin/libiconv-2.dll \
            -Wl,--out-implib,built/lib/libiconv.dll.a deps/libiconv/lib/iconv.c support/localcharset.c &&
            cp support/iconv.h built/include
    ) >"$state/log" 2>&1; then
        tail -n 20 "$state/log" >&2
        rm -rf "$state"
        die "cannot build GNU libiconv"
    fi
    mkdir -p "$(dirname "$folder")"
    mv "$state/built" "$folder"
    rm -rf "$state"
}

# need_target PRESET: what the presets of other systems and C++ libraries want besides the tests' packages.
need_target() {
    case $1 in
        i386)
            need g++-12-multilib googletest
            unpack_foreign i386 libpugixml-dev libpugixml1v5
            ;;
        aarch64)
            need g++-aarch64-linux-gnu qemu-user googletest
            unpack_foreign arm64 libc6 libpugixml-dev libpugixml1v5 libcli11-dev
            ;;
        win32 | win64)
            local processor=x86-64
            [[ $1 == win64 ]] || processor=i686
            need "g++-mingw-w64-$processor-posix" googletest
            need_wine "${1#win}"
            unpack_source pugixml
            copy_headers libcli11-dev
            ;;
        libiconv)
            need_target win64
            need_libiconv
            ;;
        libcxx)
            need_clang
            local version
            version=$(clang++ -dumpversion | cut -d. -f1)
            need "libc++-$version-dev" "libc++abi-$version-dev" googletest
            ;;
    esac
}

# configure PRESET [CMAKE ARGUMENT...]: prints CMake's words only when it fails.
configure() {
    local preset=$1 log
    shift
    say "Configuring build/$preset"
    log=$(mktemp)
    if ! cmake -S "$root" --preset "$preset" "$@" >"$log" 2>&1; then
        cat "$log" >&2
        rm -f "$log"
        die "configuring build/$preset failed"
    fi
    rm -f "$log"
}

# build PRESET [CMAKE ARGUMENT...]
build() {
    local preset=$1
    shift
    say "Building build/$preset"
    cmake --build "$root/build/$preset" --parallel "$jobs" "$@" || die "building build/$preset failed"
}
