// Holds every vector of a table against the functions of a file. usage: cscript vectors.js FUNCTIONS TABLE

var files = new ActiveXObject("Scripting.FileSystemObject");
eval(files.OpenTextFile(WScript.Arguments.Item(0)).ReadAll());

var held = 0;
var failures = 0;

function check(text, expected, vector) {
    if (text === expected) {
        ++held;
    } else {
        ++failures;
        WScript.Echo(vector + ": " + escape(text) + " instead of " + escape(expected));
    }
}

function textOf(units) {
    var parts = units === "" ? [] : units.split(" ");
    var text = "";
    for (var index = 0; index < parts.length; ++index) {
        text += String.fromCharCode(parseInt(parts[index], 16));
    }
    return text;
}

var lines = files.OpenTextFile(WScript.Arguments.Item(1)).ReadAll().split("\n");
for (var number = 0; number < lines.length; ++number) {
    // Not split by a pattern, with which JScript leaves out empty columns.
    var columns = lines[number].replace("\r", "").split("\t");
    if (columns[0] === "both") {
        check(kestaEncode(textOf(columns[1])), columns[2], columns[2]);
    }
    if (columns[0] === "both" || columns[0] === "decode") {
        check(kestaDecode(columns[2]), textOf(columns[1]), columns[2]);
    }
}
WScript.Echo(held + " held, " + failures + " failed");
WScript.Quit(failures);
