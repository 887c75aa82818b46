#!/usr/bin/env bash
# Sets up, builds, tests and demonstrates the library and its command-line tool.
# Run ./build.sh help for the verbs.
set -euo pipefail

cd "$(dirname "$0")"
top=$(pwd)
# TESSIVANETEMPLATE_QT_MAJOR=6 builds against Qt 6, in directories of its own.
qt=${TESSIVANETEMPLATE_QT_MAJOR:-5}
case "$qt" in
    5) suffix="" ;;
    6) suffix=-qt6 ;;
    *) echo "build.sh: TESSIVANETEMPLATE_QT_MAJOR is 5 or 6, not '$qt'" >&2; exit 2 ;;
esac
build="$top/build$suffix"
jobs=$(nproc 2>/dev/null || echo 2)

usage() {
    cat <<'USAGE'
Usage: ./build.sh VERB [ARGS]

  demo            build, install into build/install, render the shipped example and
                  show what the sync example would change
  test            build and run the whole test suite (exits non-zero on any failure)
  install [PREFIX] build and install the library, headers, CMake package, pkg-config
                  file and the tool into PREFIX (default /usr/local)
  bench           build, install and measure throughput and memory of the tool
  asan            build and run the test suite under AddressSanitizer and UBSan
  fuzz [SECONDS]  build the libFuzzer targets and run each for SECONDS (default 60)
  format          check that every source file is formatted as .clang-format says
  memcheck        run the test programs, and every tool they start, under valgrind
  package         build the Debian packages into build/ and check them: unpacked,
                  their tools render the example, man and bash completion work,
                  lintian finds no error
  help            show this text

Missing Debian packages are installed with apt-get when run as root.
TESSIVANETEMPLATE_QT_MAJOR=6 builds every verb against Qt 6 (build-qt6/, build-asan-qt6/).
USAGE
}

# Installs the Debian packages given that are not there yet.
need() {
    local missing=()
    for package in "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" \
            || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    local sudo=()
    if [ "$(id -u)" -ne 0 ]; then
        if command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
            sudo=(sudo -n)
        else
            echo "build.sh: missing packages: ${missing[*]}; install them or run as root" >&2
            exit 1
        fi
    fi
    echo "build.sh: installing ${missing[*]}" >&2
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

qt_packages=(qtbase5-dev)
[ "$qt" = 6 ] && qt_packages=(qt6-base-dev qt6-5compat-dev)
base_packages=(cmake make g++ pkg-config "${qt_packages[@]}" libacl1-dev libattr1-dev
    libtomlplusplus-dev libsystemd-dev diffutils util-linux help2man)
# What the tests use besides: GoogleTest, setfacl and setfattr, ps, systemd-analyze, and nginx,
# which checks the configuration the version-2 example renders; etcd members and openssl for
# the etcd source's certificates.
test_packages=(libgtest-dev acl attr procps systemd nginx-light etcd-server etcd-client openssl)

# configure DIR [CMAKE ARGS...]
configure() {
    local dir=$1
    shift
    local werror=OFF
    [ "${CI:-}" = true ] && werror=ON
    cmake -S "$top" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DTESSIVANETEMPLATE_WERROR=$werror -DTESSIVANETEMPLATE_QT_MAJOR="$qt" "$@" >/dev/null
    cmake --build "$dir" -j "$jobs" >&2
}

install_into() {
    cmake --install "$build" --prefix "$1" >/dev/null
}

# Builds the example host program against an installed tree, as a consumer
# would, and checks that it renders the example as the installed tool does.
check_consumer() {
    local prefix=$1 dir="$build/example-host"
    rm -rf "$dir"
    cmake -S "$top/examples/host" -B "$dir" -DCMAKE_PREFIX_PATH="$prefix" \
        -DTESSIVANETEMPLATE_QT_MAJOR="$qt" >/dev/null
    cmake --build "$dir" -j "$jobs" >/dev/null
    PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --exists "tessivanetemplate$suffix"
    cd "$top/examples"
    local host tool
    host=$(LD_LIBRARY_PATH="$prefix/lib" "$dir/example-host" service.conf.tmpl registry.json \
        overrides.conf)
    tool=$("$prefix/bin/tessivane-template" -r registry.json -r overrides.conf -R /etc/webshop \
        -t hostname=example-host -t workers=4 --comment-prefix '#' service.conf.tmpl)
    cd "$top"
    if [ "$host" != "$tool" ]; then
        echo "build.sh: the example host and the tool render the example differently" >&2
        diff <(echo "$host") <(echo "$tool") >&2 || true
        return 1
    fi
    echo "build.sh: the example host, built against the installed package, renders as the tool does"
}

render_example() {
    local prefix=$1
    cd "$top/examples"
    "$prefix/bin/tessivane-template" -r registry.json -r overrides.conf -R /etc/webshop \
        -t hostname=shop-01 -t workers=4 --comment-prefix '#' service.conf.tmpl
    echo
    "$prefix/bin/tessivane-template" --language 2 -r language2/web.json language2/nginx.conf.tmpl
    # What the sync example would change; 3 says that something would.
    echo
    "$prefix/bin/tessivane-sync" --dry-run sync/sync.toml || [ $? -eq 3 ]
}

verb=${1:-help}
[ $# -gt 0 ] && shift
case "$verb" in
    demo)
        need "${base_packages[@]}"
        configure "$build" -DBUILD_TESTING=OFF
        install_into "$build/install"
        render_example "$build/install"
        ;;
    test)
        need "${base_packages[@]}" "${test_packages[@]}"
        configure "$build" -DBUILD_TESTING=ON
        (cd "$build" && ctest --output-on-failure -j "$jobs")
        install_into "$build/install"
        check_consumer "$build/install"
        ;;
    install)
        need "${base_packages[@]}"
        configure "$build" -DBUILD_TESTING=OFF
        cmake --install "$build" --prefix "${1:-/usr/local}"
        ;;
    bench)
        need "${base_packages[@]}" libbenchmark-dev libctemplate-dev python3 time etcd-server
        configure "$build" -DBUILD_TESTING=OFF -DTESSIVANETEMPLATE_BENCHMARKS=ON
        install_into "$build/install"
        "$top/bench/run.sh" "$build" "$build/install"
        ;;
    asan)
        need "${base_packages[@]}" "${test_packages[@]}"
        configure "$top/build-asan$suffix" -DBUILD_TESTING=ON -DTESSIVANETEMPLATE_SANITIZE=ON \
            -DCMAKE_BUILD_TYPE=Debug >/dev/null
        # Qt is built without frame pointers: only the slow unwinder gives the
        # whole stacks that tests/lsan.supp matches Qt's own leaks by.
        # The tests preload a library into the tool that makes system calls fail;
        # it need not come after the sanitizer's runtime.
        (cd "$top/build-asan$suffix" && ASAN_OPTIONS=detect_leaks=1:fast_unwind_on_malloc=0:verify_asan_link_order=0 \
            LSAN_OPTIONS=suppressions="$top/tests/lsan.supp":print_suppressions=0 \
            UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
            ctest --output-on-failure -j "$jobs")
        ;;
    fuzz)
        need "${base_packages[@]}" clang libclang-rt-14-dev
        CC=clang CXX=clang++ configure "$top/build-fuzz" -DBUILD_TESTING=OFF \
            -DTESSIVANETEMPLATE_FUZZERS=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
        "$top/fuzz/run.sh" "$top/build-fuzz" "${1:-60}"
        ;;
    memcheck)
        need "${base_packages[@]}" "${test_packages[@]}" valgrind
        configure "$build" -DBUILD_TESTING=ON
        # The 100 MB line and the gigabyte reads alone would take minutes under valgrind.
        for program in "$build"/tests/tst_*; do
            [[ -x $program && $(basename "$program") != *.* ]] || continue
            valgrind --error-exitcode=9 --leak-check=full --errors-for-leak-kinds=definite \
                --trace-children=yes --suppressions="$top/tests/valgrind.supp" -q \
                "$program" --gtest_brief=1 \
                --gtest_filter=-HostileInput.WritesHundredMegabyteLine:*LineTooLong:*EndlessRegistryFile
        done
        echo "build.sh: no memory error and no definite leak under valgrind"
        ;;
    package)
        # dpkg-shlibdeps (dpkg-dev) computes the packages' dependencies; the rest checks them.
        need "${base_packages[@]}" help2man dpkg-dev lintian man-db bash-completion
        configure "$build-package" -DBUILD_TESTING=OFF -DCMAKE_BUILD_TYPE=Release \
            -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_SKIP_INSTALL_RPATH=ON
        rm -f "$build-package"/*.deb
        (cd "$build-package" && cpack -G DEB >/dev/null)
        "$top/tests/package/check.sh" "$build-package" "$build-package/tools/tessivane-template"
        ls "$build-package"/*.deb
        ;;
    format)
        need clang-format
        git -C "$top" ls-files -z '*.cpp' '*.h' | (cd "$top" && xargs -0 clang-format --dry-run --Werror)
        echo "build.sh: every source file is formatted"
        ;;
    help | -h | --help)
        usage
        ;;
    *)
        usage >&2
        exit 2
        ;;
esac
