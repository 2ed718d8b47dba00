; The installer, one script for both architectures. The build gives:
;   ARCH (x86, x64)  BUILD (where the programs are)  TEXTS (where the documents are)  OUT  VERSION (3.1.5)
; The installer is a program of the architecture that it installs for: the x64 one sees the real system directory and
; registry, and Wine without 32-bit programs runs it.
;
;   zt_6232-setup-ARCH.exe [/S] [/SET] [/D=DIRECTORY]   /S: without a question, and without the provider's dialog
;                                                       /SET: the simulated set too
;   uninstall.exe [/S] [/ALL]                    /ALL: settings and trace files too, without asking
; Exit codes: 0 done; ztsetup's own where the provider could not be added or removed, and 8 where that was done but the
; telephony service's account has not its rights; 1 for what stands in the way before that; 7 when a file cannot be written.
Unicode true
!if "${ARCH}" == "x64"
  Target amd64-unicode
  !define NATIVE ${IsNativeAMD64}
  !define BITS 64
  InstallDir "$PROGRAMFILES64\Corvane 6200 Service Provider"
!else
  Target x86-unicode
  !define NATIVE ${IsNativeIA32}
  !define BITS 32
  InstallDir "$PROGRAMFILES\Corvane 6200 Service Provider"
!endif
SetCompressor /SOLID lzma
SetDateSave off  ; installed files are of the day of their installation; and the same files make the same installer

!include LogicLib.nsh
!include x64.nsh
!include FileFunc.nsh
!include Sections.nsh

!define PRODUCT "Corvane 6200 Service Provider"
!define PUBLISHER "Corvane"
!define ENTRY "Software\Microsoft\Windows\CurrentVersion\Uninstall\zt_6232"
!define LIBRARY "$SYSDIR\zt_6232.tsp"

Name "${PRODUCT}"
Caption "${PRODUCT} ${VERSION} (${BITS}-bit)"
OutFile "${OUT}"
RequestExecutionLevel admin
ShowInstDetails show
ShowUninstDetails show
BrandingText " "

VIProductVersion "${VERSION}.0"
VIAddVersionKey "ProductName" "${PRODUCT}"
VIAddVersionKey "CompanyName" "${PUBLISHER}"
VIAddVersionKey "FileDescription" "${PRODUCT} installer (${BITS}-bit)"
VIAddVersionKey "FileVersion" "${VERSION}"
VIAddVersionKey "ProductVersion" "${VERSION}"
VIAddVersionKey "LegalCopyright" ""

ComponentText "The simulated set is for trying the provider without a PBX: see trying.txt in its folder."
Page components
Page directory
Page instfiles
UninstPage uninstConfirm
UninstPage instfiles

Var Said    ; what ztsetup printed
Var Code    ; and how it ended
Var Quiet   ; --quiet in a silent installation
Var Aside   ; where an earlier library was put
Var Placed  ; the new library is in its place
Var Update  ; there is an earlier installation

; A silent installation has no window: the text is in a file then.
!macro Tell icon text
  ${If} ${Silent}
    FileOpen $R9 "$TEMP\zt_6232-setup.txt" w
    FileWrite $R9 "${text}$\r$\n"
    FileClose $R9
  ${Else}
    MessageBox MB_OK|${icon} "${text}"
  ${EndIf}
!macroend

; Tells why nothing more is done, and ends.
!macro Stop code text
  SetErrorLevel ${code}
  !insertmacro Tell MB_ICONSTOP "${text}"
  Quit
!macroend

!macro Ztsetup arguments
  nsExec::ExecToStack '"$INSTDIR\ztsetup.exe" ${arguments}'
  Pop $Code
  Pop $Said
  DetailPrint $Said
!macroend

; Takes the library out of the way, to $Aside. Windows lets one that is loaded be renamed, but not deleted: it goes at the
; next start then.
!macro MoveLibraryAway
  GetTempFileName $Aside $SYSDIR
  Delete $Aside
  ClearErrors
  Rename "${LIBRARY}" $Aside
!macroend

Function .onInit
  SetRegView ${BITS}
  ${IfNot} ${NATIVE}
    !if "${ARCH}" == "x86"
      !insertmacro Stop 1 "This installer is for 32-bit Windows, and this Windows is not. Its telephony service loads no 32-bit provider. Take zt_6232-setup-x64.exe on 64-bit (x64) Windows."
    !else
      !insertmacro Stop 1 "This installer is for 64-bit (x64) Windows, and this Windows is of another kind. Its telephony service cannot load this provider."
    !endif
  ${EndIf}
  UserInfo::GetAccountType
  Pop $0
  ${If} $0 != "Admin"
    !insertmacro Stop 1 "Administrator rights are needed to install the ${PRODUCT}. Right-click the installer and choose $\"Run as administrator$\"."
  ${EndIf}
  ReadRegStr $Update HKLM "${ENTRY}" "InstallLocation"
  ${If} $Update != ""  ; it stays where it is
    StrCpy $INSTDIR $Update
  ${EndIf}
  Call ChooseSet
FunctionEnd

; Nothing of a first installation stays; after a failed update the earlier library is back.
Function RollBack
  ${If} $Placed != ""
    Delete "${LIBRARY}"
    ${If} ${FileExists} "${LIBRARY}"  ; loaded
      GetTempFileName $R0 $SYSDIR
      Delete $R0
      Rename "${LIBRARY}" $R0
      Delete /REBOOTOK $R0
    ${EndIf}
  ${EndIf}
  ${If} $Aside != ""
    Rename $Aside "${LIBRARY}"
  ${EndIf}
  ${If} $Update == ""
    Call RemovePrograms
  ${EndIf}
FunctionEnd

!macro RemovePrograms un
Function ${un}RemovePrograms
  Delete "$INSTDIR\ztsetup.exe"
  Delete "$INSTDIR\zttrace.exe"
  Delete "$INSTDIR\install.txt"
  Delete "$INSTDIR\troubleshooting.txt"
  Delete "$INSTDIR\readme.txt"
  Delete "$INSTDIR\uninstall.exe"
  SetOutPath $TEMP
  Delete "$INSTDIR\simulated-set\zt_equipment.exe"
  Delete "$INSTDIR\simulated-set\trying.txt"
  Delete "$INSTDIR\simulated-set\applications.txt"
  Delete "$INSTDIR\simulated-set\day.txt"
  Delete "$INSTDIR\simulated-set\bad-line.txt"
  Delete "$INSTDIR\simulated-set\version-1.txt"
  Delete "$INSTDIR\simulated-set\version-2.txt"
  Delete "$INSTDIR\simulated-set\version-3.txt"
  RMDir "$INSTDIR\simulated-set"
  RMDir "$INSTDIR"
FunctionEnd
!macroend
!insertmacro RemovePrograms ""
!insertmacro RemovePrograms "un."

Function CannotWrite
  Call RollBack
  !insertmacro Stop 7 "A file could not be written to $INSTDIR or $SYSDIR. Look for free space and rights there, end all programs that use the telephone, and try again. The provider is as it was before."
FunctionEnd

Section "Service provider" install_section
  SectionIn RO
  StrCpy $Aside ""
  StrCpy $Placed ""
  StrCpy $Quiet ""
  ${If} ${Silent}
    StrCpy $Quiet "--quiet"
  ${EndIf}
  SetOverwrite try
  SetOutPath $INSTDIR
  ClearErrors
  File "${BUILD}\ztsetup.exe"
  File "${BUILD}\zttrace.exe"
  File "${TEXTS}\install.txt"
  File "${TEXTS}\troubleshooting.txt"
  File "${TEXTS}\readme.txt"
  ${If} ${Errors}
    Call CannotWrite
  ${EndIf}
  ${If} ${FileExists} "${LIBRARY}"
    !insertmacro MoveLibraryAway
    ${If} ${Errors}
      StrCpy $Aside ""  ; it is where it was
      Call RollBack
      !insertmacro Stop 7 "${LIBRARY} could not be replaced. End all programs that use the telephone, stop the telephony service (net stop tapisrv), and try again."
    ${EndIf}
  ${EndIf}
  SetOutPath $SYSDIR
  StrCpy $Placed "yes"
  ClearErrors
  File "${BUILD}\zt_6232.tsp"
  ${If} ${Errors}
    Call CannotWrite
  ${EndIf}

  !insertmacro Ztsetup "install $Quiet"
  ${If} $Code != 0
  ${AndIf} $Code != 5  ; installed already: an update
  ${AndIf} $Code != 8  ; installed, without rights of the service's account: told at the end
    Call RollBack
    ${If} $Code == "error"
      StrCpy $Code 1
      StrCpy $Said "ztsetup.exe could not be started."
    ${EndIf}
    !insertmacro Stop $Code "The provider could not be installed:$\r$\n$\r$\n$Said$\r$\nThe files are as they were before."
  ${EndIf}

  ${If} $Aside != ""
    Delete $Aside
    ${If} ${FileExists} $Aside
      Delete /REBOOTOK $Aside
      DetailPrint "The telephony service still uses the earlier version. Restart the PC, or the service: net stop tapisrv"
      SetRebootFlag false  ; nobody has to
    ${EndIf}
  ${EndIf}

  WriteUninstaller "$INSTDIR\uninstall.exe"
  WriteRegStr HKLM "${ENTRY}" "DisplayName" "${PRODUCT}"
  WriteRegStr HKLM "${ENTRY}" "DisplayVersion" "${VERSION}"
  WriteRegStr HKLM "${ENTRY}" "Publisher" "${PUBLISHER}"
  WriteRegStr HKLM "${ENTRY}" "InstallLocation" "$INSTDIR"
  WriteRegStr HKLM "${ENTRY}" "UninstallString" '"$INSTDIR\uninstall.exe"'
  WriteRegStr HKLM "${ENTRY}" "QuietUninstallString" '"$INSTDIR\uninstall.exe" /S'
  WriteRegDWORD HKLM "${ENTRY}" "NoModify" 1
  WriteRegDWORD HKLM "${ENTRY}" "NoRepair" 1
  SectionGetSize ${install_section} $0
  WriteRegDWORD HKLM "${ENTRY}" "EstimatedSize" $0

  ${If} $Code == 8
    SetErrorLevel 8
    !insertmacro Tell MB_ICONEXCLAMATION "$Said"
  ${EndIf}
SectionEnd

Section /o "Simulated set" set_section
  SetOutPath "$INSTDIR\simulated-set"
  ClearErrors
  File "${BUILD}\zt_equipment.exe"
  File "${TEXTS}\trying.txt"
  File "${TEXTS}\applications.txt"
  File "${TEXTS}\scripts\*.txt"
  ${If} ${Errors}
    !insertmacro Stop 7 "The provider is installed. The simulated set is not: a file could not be written to $OUTDIR. End it, if it runs, and try again."
  ${EndIf}
  SectionGetSize ${set_section} $0
  ReadRegDWORD $1 HKLM "${ENTRY}" "EstimatedSize"
  IntOp $0 $0 + $1
  WriteRegDWORD HKLM "${ENTRY}" "EstimatedSize" $0
SectionEnd

; The simulated set is chosen where it is asked for, or there already.
Function ChooseSet
  ${GetParameters} $0
  ${GetOptions} $0 "/SET" $1
  ${If} ${Errors}
  ${AndIfNot} ${FileExists} "$INSTDIR\simulated-set\zt_equipment.exe"
    Return
  ${EndIf}
  !insertmacro SelectSection ${set_section}
FunctionEnd

Function un.onInit
  SetRegView ${BITS}
  UserInfo::GetAccountType
  Pop $0
  ${If} $0 != "Admin"
    !insertmacro Stop 1 "Administrator rights are needed to remove the ${PRODUCT}."
  ${EndIf}
FunctionEnd

Section "Uninstall"
  !insertmacro Ztsetup "remove"
  ${If} $Code != 0
  ${AndIf} $Code != 5  ; not in the list: removed by hand before
  ${AndIf} $Code != 8  ; removed, with rights left to the service's account
    ${If} $Code == "error"
      StrCpy $Code 1
      StrCpy $Said "$INSTDIR\ztsetup.exe, which does that, is not there or cannot be started. Install version ${VERSION} again, then remove it.$\r$\n"
    ${EndIf}
    MessageBox MB_YESNO|MB_ICONEXCLAMATION|MB_DEFBUTTON2 "Windows did not take the provider out of its list:$\r$\n$\r$\n$Said$\r$\nRemove its files all the same?" /SD IDNO IDYES files
    !insertmacro Stop $Code "The provider was not removed:$\r$\n$\r$\n$Said"
    files:
  ${ElseIf} $Code == 8
    SetErrorLevel 8
  ${EndIf}

  Delete "${LIBRARY}"
  ${If} ${FileExists} "${LIBRARY}"
    !insertmacro MoveLibraryAway
    StrCpy $Said "It was renamed to $Aside; Windows deletes it at its next start."
    ${If} ${Errors}
      StrCpy $Aside "${LIBRARY}"
      StrCpy $Said "${LIBRARY} could not be renamed; Windows deletes it at its next start. Restart the PC before you install again: it would delete the new one."
    ${EndIf}
    Delete /REBOOTOK $Aside
    SetRebootFlag false
    DetailPrint "The library is still in use. $Said"
    MessageBox MB_OK|MB_ICONINFORMATION "The telephony service, or another program, still uses the library. $Said" /SD IDOK
  ${EndIf}
  Call un.RemovePrograms
  DeleteRegKey HKLM "${ENTRY}"

  ${GetParameters} $0
  ${GetOptions} $0 "/ALL" $1
  ${IfNot} ${Errors}
    Goto settings
  ${EndIf}
  MessageBox MB_YESNO|MB_ICONQUESTION|MB_DEFBUTTON2 "The provider is removed. Its settings in the registry and its trace files are still there, for a later installation or a report. Remove them too?" /SD IDNO IDNO done
  settings:
    DeleteRegKey HKLM "SOFTWARE\Corvane\TSpi_6200"
    DeleteRegKey /ifempty HKLM "SOFTWARE\Corvane"
    Delete "$WINDIR\zt62cfg.ini"
    Delete "$WINDIR\spitrace\tsptrac0.tr"
    Delete "$WINDIR\spitrace\tsptrac1.tr"
    Delete "$WINDIR\spitrace\tsptrac0.old"
    Delete "$WINDIR\spitrace\tsptrac1.old"
    RMDir "$WINDIR\spitrace"
    Delete "$SYSDIR\zt_opt.fdb"
    Delete "$SYSDIR\zt_array.fdb"
  done:
SectionEnd
