' A late-bound client: creates the control by its ProgID, calls every method, and shows the error text of a failing call.
' Run it with cscript allMethods.vbs. The exit code is 0 if everything worked and the call that should fail did so with its text.
Option Explicit

Dim control, failures
failures = 0
Set control = CreateObject("KESTAserver.JavaManager.1")

' -1 would mean that Java did not start; the next failing call would say why.
Report "getBeanFrameID", control.getBeanFrameID()
' A script has no window to put the frame into. 0 means none; the control is put into its frame anyway.
control.pushWindowHandle 0
Report "pushWindowHandle", "done"

Report "setUsedControl", control.setUsedControl("Stations", "1.0")
Report "setProperty", control.setProperty("title", "Set by a script")
Report "getProperty", control.getProperty("title")
If control.getProperty("title") <> "Set by a script" Then failures = failures + 1
Report "callMethod", control.callMethod("sum", "")
Report "callMethodCompressed", control.callMethodCompressed("sum", 1, "")
Report "setLogLevel", control.setLogLevel(2)
Report "displayDebugConsole", control.displayDebugConsole()
Report "getBasisControlVersionInfo", control.getBasisControlVersionInfo()
Report "getVersionInfo", control.getVersionInfo("java")
Report "updateVersion", control.updateVersion("1.0")
control.setBounds 0, 0, 400, 300
Report "setBounds", "done"
control.validate
Report "validate", "done"
control.enable True
Report "enable", "done"
control.testBridge "abc", 1, 0
Report "testBridge", "done"

' The error text of a failing call is the server's log of the failure: the failed check and every function around it.
On Error Resume Next
control.callMethod "nonsense", "on purpose"
If Err.Number = 0 Or InStr(Err.Description, "no method ""nonsense""") = 0 Then failures = failures + 1
WScript.Echo "callMethod failed as it should, error 0x" & Hex(Err.Number) & ":"
WScript.Echo Err.Description
On Error Goto 0

Report "free", control.free()
' Releasing the last reference ends the server process.
Set control = Nothing
WScript.Quit failures

Sub Report(method, answer)
    WScript.Echo method & " -> " & answer
End Sub
