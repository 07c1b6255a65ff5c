' A script in VBScript: fills the sample control's table and reads it back. Run it with cscript stations.vbs.
Option Explicit

Dim control, rows
Set control = CreateObject("KESTAserver.JavaManager.1")
control.pushWindowHandle 0 ' a script has no window to put the control into
WScript.Echo control.setUsedControl("Stations", "1.0")

' Texts that are not known in advance need KestaEncode and KestaDecode, in kestaText.vbs: copy them to the end of the script.
rows = "Troms\u00F8;2.5|\u6771\u4EAC;14"
control.setProperty "rows", rows
WScript.Echo control.getProperty("rows")
If control.getProperty("rows") = rows Then WScript.Echo "The rows are back as they were."
WScript.Echo control.callMethod("sum", "")

On Error Resume Next
control.callMethod "nonsense", ""
WScript.Echo "a call failed: " & Err.Description ' what the server logged about the failure
On Error Goto 0
Set control = Nothing ' ends the server
