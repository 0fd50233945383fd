' Run with: tessel script examples/hello.vbs World
Dim name
If WScript.Arguments.Count > 0 Then name = WScript.Arguments(0) Else name = "there"
WScript.Echo "Hello, " & name & "! Today is " & FormatDateTime(Date, vbLongDate) & "."
WScript.Echo "1/3 =", 1 / 3, "; CCur(0.1) + CCur(0.2) =", CCur(0.1) + CCur(0.2), "(" & TypeName(CCur(0.1) + CCur(0.2)) & ")"
