' Sends JSON, with the letters as numbers, to the test control. Prints the code units that it got. The test puts kestaText.vbs
' behind this.
Option Explicit

Dim control, text
Set control = CreateObject("KESTAserver.JavaManager.1")
control.pushWindowHandle 0
text = "{""site"":""Troms\u00f8 \ud83d\ude00"",""path"":""C:\\users""}"
WScript.Echo control.callMethod("units", KestaEncode(text))
If KestaDecode(control.callMethod("echo", KestaEncode(text))) <> text Then WScript.Echo "came back as another text"
