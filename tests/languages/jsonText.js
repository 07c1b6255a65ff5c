// Sends JSON, with the letters as they are and as numbers, to the test control. Prints the code units that it got.
// usage: cscript jsonText.js FUNCTIONS
eval(new ActiveXObject("Scripting.FileSystemObject").OpenTextFile(WScript.Arguments.Item(0)).ReadAll());

var control = new ActiveXObject("KESTAserver.JavaManager.1");
control.pushWindowHandle(0);
send("{\"site\":\"Troms\u00f8 \ud83d\ude00\",\"path\":\"C:\\\\users\"}");
send("{\"site\":\"Troms\\u00f8 \\ud83d\\ude00\",\"path\":\"C:\\\\users\"}");

function send(text) {
    WScript.Echo(control.callMethod("units", kestaEncode(text)));
    if (kestaDecode(control.callMethod("echo", kestaEncode(text))) !== text) {
        WScript.Echo("came back as another text");
    }
}
