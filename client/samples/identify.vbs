' Lets the LEDs of a probe show which one it is, or no longer:
'   cscript //nologo identify.vbs WFX0001
'   cscript //nologo identify.vbs WFX0001 off
Option Explicit

Const ID_NORMAL = 0
Const ID_CHASER = 1
Const SUCCESS = 0

Dim wirefox, version, state, outcome
If WScript.Arguments.Count = 0 Then
  WScript.Echo "usage: cscript //nologo identify.vbs PROBE [off]"
  WScript.Quit 2
End If
state = ID_CHASER
If WScript.Arguments.Count > 1 Then state = ID_NORMAL

' The service starts by itself, and ends with its last client when it runs as a plain server.
Set wirefox = CreateObject("TzWirefoxService.TzWirefox")
version = wirefox.GetVersion()
WScript.Echo "service version " & (version \ &H1000000) & "." & ((version \ &H10000) And &HFF) & _
             "." & ((version \ &H100) And &HFF) & "." & (version And &HFF)

' Values, not variables: a variable would be passed by reference.
outcome = wirefox.VisualIdentify(WScript.Arguments.Item(0) & "", state + 0)
If outcome <> SUCCESS Then
  WScript.Echo "error " & outcome
  WScript.Quit 10 + outcome
End If
WScript.Echo "done"
