// A script in JScript: fills the sample control's table and reads it back. Run it with cscript stations.js, with kestaText.js
// beside it.
var files = new ActiveXObject("Scripting.FileSystemObject");
eval(files.OpenTextFile(WScript.ScriptFullName.replace(WScript.ScriptName, "kestaText.js")).ReadAll());

var control = new ActiveXObject("KESTAserver.JavaManager.1");
control.pushWindowHandle(0); // a script has no window to put the control into
WScript.Echo(control.setUsedControl("Stations", "1.0"));

var rows = "Troms\u00F8;2.5|\u6771\u4EAC;14";
control.setProperty("rows", kestaEncode(rows));
WScript.Echo(control.getProperty("rows"));
if (kestaDecode(control.getProperty("rows")) === rows) {
    WScript.Echo("The rows are back as they were.");
}
WScript.Echo(control.callMethod("sum", ""));

try {
    control.callMethod("nonsense", "");
} catch (error) {
    WScript.Echo("a call failed: " + error.message); // what the server logged about the failure
}
// The object is released, and the server ends, with the script.
