' Lets the LEDs of a probe show which one it is, or no longer:
'   cscript //nologo identify.vbs WFX0001
'   cscript //nologo identify.vbs WFX0001 off
Option Explicit

Const ID_NORMAL = 0
Const ID_CHASER = 1

Dim wirefox, version, state
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

' The outcome is an output of the method. A script cannot receive it: a value takes its place.
wirefox.VisualIdentify WScript.Arguments.Item(0), state, CLng(0)
WScript.Echo "done"
