#include "service/registry_data.h"

#include <array>

namespace {

// A self-relative security descriptor (who may call the server), stored as it is on disk. Owner and
// group are the built-in administrators.
constexpr std::array<std::uint8_t, 120> kAccessPermission = {
    // Revision 1; control: self-relative, access list present; offsets of owner, group, no audit
    // list, access list.
    0x01, 0x00, 0x04, 0x80, 0x58, 0x00, 0x00, 0x00, 0x68, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x14, 0x00, 0x00, 0x00,
    // Access list: revision 2, 68 bytes, 3 entries.
    0x02, 0x00, 0x44, 0x00, 0x03, 0x00, 0x00, 0x00,
    // The principal itself (S-1-5-10) may execute, locally and remotely.
    0x00, 0x00, 0x14, 0x00, 0x07, 0x00, 0x00, 0x00, 0x01, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05,
    0x0a, 0x00, 0x00, 0x00,
    // The local system (S-1-5-18) may execute locally.
    0x00, 0x00, 0x14, 0x00, 0x03, 0x00, 0x00, 0x00, 0x01, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05,
    0x12, 0x00, 0x00, 0x00,
    // Interactive users (S-1-5-4) may execute locally.
    0x00, 0x00, 0x14, 0x00, 0x03, 0x00, 0x00, 0x00, 0x01, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05,
    0x04, 0x00, 0x00, 0x00,
    // Owner S-1-5-32-544.
    0x01, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x20, 0x00, 0x00, 0x00, 0x20, 0x02, 0x00, 0x00,
    // Group S-1-5-32-544.
    0x01, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x20, 0x00, 0x00, 0x00, 0x20, 0x02, 0x00, 0x00};

constexpr ScriptValue kAppIdValues[] = {{nullptr, L"TzWirefoxService"}};
// The permission stands at the executable's name, not at the application id.
constexpr ScriptValue kExecutableValues[] = {{L"AppID", L"%APPID%"},
                                             {L"AccessPermission", nullptr, kAccessPermission}};

constexpr ScriptKey kAppIdKeys[] = {
    {L"AppID", ScriptKeyRule::kNoRemove, {}},
    {L"AppID\\%APPID%", ScriptKeyRule::kNormal, kAppIdValues},
    {L"AppID\\TzWirefoxService.EXE", ScriptKeyRule::kNormal, kExecutableValues},
};

constexpr ScriptValue kClassName[] = {{nullptr, L"TzWirefox Class"}};
constexpr ScriptValue kClassNameAndAppId[] = {{nullptr, L"TzWirefox Class"},
                                              {L"AppID", L"%APPID%"}};
constexpr ScriptValue kClassId[] = {{nullptr, L"%CLSID%"}};
constexpr ScriptValue kProgramId[] = {{nullptr, L"TzWirefoxService.TzWirefox.1"}};
constexpr ScriptValue kIndependentProgramId[] = {{nullptr, L"TzWirefoxService.TzWirefox"}};
constexpr ScriptValue kServer[] = {{nullptr, L"%MODULE%"}};
constexpr ScriptValue kLibrary[] = {{nullptr, L"%LIBID%"}};

constexpr ScriptKey kClassKeys[] = {
    {L"TzWirefoxService.TzWirefox.1", ScriptKeyRule::kNormal, kClassName},
    {L"TzWirefoxService.TzWirefox.1\\CLSID", ScriptKeyRule::kNormal, kClassId},
    {L"TzWirefoxService.TzWirefox", ScriptKeyRule::kNormal, kClassName},
    {L"TzWirefoxService.TzWirefox\\CLSID", ScriptKeyRule::kNormal, kClassId},
    {L"TzWirefoxService.TzWirefox\\CurVer", ScriptKeyRule::kNormal, kProgramId},
    {L"CLSID", ScriptKeyRule::kNoRemove, {}},
    {L"CLSID\\%CLSID%", ScriptKeyRule::kForceRemove, kClassNameAndAppId},
    {L"CLSID\\%CLSID%\\ProgID", ScriptKeyRule::kNormal, kProgramId},
    {L"CLSID\\%CLSID%\\VersionIndependentProgID", ScriptKeyRule::kNormal, kIndependentProgramId},
    {L"CLSID\\%CLSID%\\Programmable", ScriptKeyRule::kForceRemove, {}},
    {L"CLSID\\%CLSID%\\LocalServer32", ScriptKeyRule::kNormal, kServer},
    {L"CLSID\\%CLSID%\\TypeLib", ScriptKeyRule::kNormal, kLibrary},
};

}  // namespace

constinit const RegistryScript kAppIdScript = kAppIdKeys;
constinit const RegistryScript kClassScript = kClassKeys;
