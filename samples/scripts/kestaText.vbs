' Texts on their way to a control and back, for VBScript; Visual Basic takes it as it is.
'
' Only printable ASCII passes the server as it was sent. So client and control write every other UTF-16 code unit as a backslash,
' "u" and four upper-case hexadecimal digits, and also a backslash with a "u" behind it; nothing else is changed.

' The text as the server gets it.
Function KestaEncode(text)
    Dim encoded, index, unit
    encoded = ""
    For index = 1 To Len(text)
        unit = KestaUnit(text, index)
        If unit < 32 Or unit > 126 Or (unit = 92 And KestaUnit(text, index + 1) = 117) Then
            encoded = encoded & "\u" & Right("000" & Hex(unit), 4)
        Else
            encoded = encoded & Mid(text, index, 1)
        End If
    Next
    KestaEncode = encoded
End Function

' The text of an answer or an event.
Function KestaDecode(text)
    Dim decoded, index, unit
    decoded = ""
    index = 1
    Do While index <= Len(text)
        unit = KestaEscaped(text, index)
        If unit < 0 Then
            decoded = decoded & Mid(text, index, 1)
            index = index + 1
        Else
            decoded = decoded & ChrW(unit)
            index = index + 6
        End If
    Loop
    KestaDecode = decoded
End Function

' The code unit that the escape at this place stands for, or -1.
Function KestaEscaped(text, index)
    Dim digit, place, value
    KestaEscaped = -1
    If KestaUnit(text, index) <> 92 Or KestaUnit(text, index + 1) <> 117 Then Exit Function
    value = 0
    For place = index + 2 To index + 5
        digit = KestaUnit(text, place)
        If digit >= 48 And digit <= 57 Then
            value = value * 16 + digit - 48
        ElseIf digit >= 65 And digit <= 70 Then
            value = value * 16 + digit - 55
        Else
            Exit Function
        End If
    Next
    KestaEscaped = value
End Function

' The code unit at this place, or -1 behind the end.
Function KestaUnit(text, index)
    Dim unit
    unit = -1
    If index <= Len(text) Then
        unit = CLng(AscW(Mid(text, index, 1)))
        If unit < 0 Then unit = unit + 65536
    End If
    KestaUnit = unit
End Function
