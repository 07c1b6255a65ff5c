' Holds the vectors of a table within ASCII against the functions of kestaText.vbs, which the test puts behind this.
' usage: cscript vectors.vbs TABLE
' Texts are compared as the numbers of their code units: a comparison of texts may ignore characters.
Option Explicit

Dim table, columns, held, failures
held = 0
failures = 0
Set table = CreateObject("Scripting.FileSystemObject").OpenTextFile(WScript.Arguments.Item(0))
Do Until table.AtEndOfStream
    columns = Split(table.ReadLine, vbTab)
    If UBound(columns) = 2 Then
        If IsAscii(columns(1)) Then
            If columns(0) = "both" Then Check KestaEncode(TextOf(columns(1))), UnitsOf(columns(2)), columns(2)
            If columns(0) = "both" Or columns(0) = "decode" Then Check KestaDecode(columns(2)), columns(1), columns(2)
        End If
    End If
Loop
WScript.Echo held & " held, " & failures & " failed"
WScript.Quit failures

Function IsAscii(units)
    Dim unit
    IsAscii = True
    If Len(units) > 0 Then
        For Each unit In Split(units, " ")
            If unit > "007F" Then IsAscii = False
        Next
    End If
End Function

Sub Check(text, units, vector)
    If UnitsOf(text) = units Then
        held = held + 1
    Else
        failures = failures + 1
        WScript.Echo vector & ": " & UnitsOf(text) & " instead of " & units
    End If
End Sub

Function TextOf(units)
    Dim unit, text
    text = ""
    If Len(units) > 0 Then
        For Each unit In Split(units, " ")
            text = text & ChrW(ValueOf(unit))
        Next
    End If
    TextOf = text
End Function

Function ValueOf(digits)
    Dim index, value
    value = 0
    For index = 1 To Len(digits)
        value = value * 16 + InStr("0123456789ABCDEF", Mid(digits, index, 1)) - 1
    Next
    ValueOf = value
End Function

Function UnitsOf(text)
    Dim index, unit, units
    units = ""
    For index = 1 To Len(text)
        unit = CLng(AscW(Mid(text, index, 1)))
        If unit < 0 Then unit = unit + 65536
        If index > 1 Then units = units & " "
        units = units & Right("000" & Hex(unit), 4)
    Next
    UnitsOf = units
End Function
