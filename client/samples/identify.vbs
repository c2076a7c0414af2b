' Lets the LEDs of a probe show which one it is, for a moment:  cscript //nologo identify.vbs WFX0001
Option Explicit

Const ID_NORMAL = 0
Const ID_CHASER = 1
Const SUCCESS = 0

Dim wirefox, version, outcome
If WScript.Arguments.Count <> 1 Then
  WScript.Echo "usage: cscript //nologo identify.vbs PROBE"
  WScript.Quit 2
End If

' The service starts by itself, and ends with its last client when it runs as a plain server.
Set wirefox = CreateObject("TzWirefoxService.TzWirefox")
version = wirefox.GetVersion()
WScript.Echo "service version " & (version \ &H1000000) & "." & ((version \ &H10000) And &HFF) & _
             "." & ((version \ &H100) And &HFF) & "." & (version And &HFF)

outcome = wirefox.VisualIdentify(WScript.Arguments(0), ID_CHASER)
If outcome <> SUCCESS Then
  WScript.Echo "error " & outcome
  WScript.Quit 10 + outcome
End If
WScript.Sleep 2000
wirefox.VisualIdentify WScript.Arguments(0), ID_NORMAL
WScript.Echo "done"
