; Installs what dist/windows holds, registers the service, and takes all of it away again.
;   setup.exe [/S] [/D=FOLDER]      silent; another folder (last, without quotes)
; makensis -DVERSION=... -DFROM=FOLDER -DFILES=LIST -DOUT=FILE installer.nsi; LIST takes the files away again
!define KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\Wirefox"
!define SERVICE "$INSTDIR\TzWirefoxService.exe"
!include LogicLib.nsh
!include x64.nsh

Unicode true
Target amd64-unicode
Name "Wirefox"
OutFile "${OUT}"
InstallDir "$PROGRAMFILES64\Wirefox"
RequestExecutionLevel admin
SetCompressor /SOLID lzma
VIProductVersion "${VERSION}"
VIAddVersionKey "ProductName" "Wirefox"
VIAddVersionKey "ProductVersion" "${VERSION}"
VIAddVersionKey "FileVersion" "${VERSION}"
VIAddVersionKey "FileDescription" "Setup of Wirefox"
VIAddVersionKey "LegalCopyright" ""


Page directory
Page instfiles
UninstPage uninstConfirm
UninstPage instfiles

; A 64-bit program's settings are looked for in the 64-bit part of the registry.
Function .onInit
  SetRegView 64
  ${IfNot} ${RunningX64}
    MessageBox MB_OK|MB_ICONSTOP "Wirefox needs a 64-bit Windows." /SD IDOK
    Abort
  ${EndIf}
  ; Where an earlier version lies, unless the command line names another folder.
  ReadRegStr $0 HKLM "${KEY}" "InstallLocation"
  ${If} $0 != ""
  ${AndIf} $INSTDIR == "$PROGRAMFILES64\Wirefox"
    StrCpy $INSTDIR $0
  ${EndIf}
FunctionEnd

Function un.onInit
  SetRegView 64
FunctionEnd

Section
  ; An earlier version's service is stopped and lets go of its file.
  ${If} ${FileExists} "${SERVICE}"
    ExecWait '"${SERVICE}" -UnregServer'
  ${EndIf}
  SetOutPath "$INSTDIR"
  ; What the user may have changed stays as it is.
  SetOverwrite off
  File "${FROM}/wfxusb.ini"
  SetOverwrite on
  File /r /x wfxusb.ini "${FROM}/*"
  WriteUninstaller "$INSTDIR\uninstall.exe"
  WriteRegStr HKLM "${KEY}" "DisplayName" "Wirefox"
  WriteRegStr HKLM "${KEY}" "DisplayVersion" "${VERSION}"
  WriteRegStr HKLM "${KEY}" "InstallLocation" "$INSTDIR"
  WriteRegStr HKLM "${KEY}" "UninstallString" '"$INSTDIR\uninstall.exe"'
  WriteRegStr HKLM "${KEY}" "QuietUninstallString" '"$INSTDIR\uninstall.exe" /S'
  WriteRegDWORD HKLM "${KEY}" "NoModify" 1
  WriteRegDWORD HKLM "${KEY}" "NoRepair" 1
  ExecWait '"${SERVICE}" -Service' $0
  ${If} $0 != 0
    SetErrorLevel 3
    Abort "The service could not be registered: $0"
  ${EndIf}
SectionEnd

Section "Uninstall"
  ExecWait '"${SERVICE}" -UnregServer'
  ; The files that were put there, and no others.
  !include "${FILES}"
  Delete "$INSTDIR\uninstall.exe"
  RMDir "$INSTDIR"
  DeleteRegKey HKLM "${KEY}"
SectionEnd
