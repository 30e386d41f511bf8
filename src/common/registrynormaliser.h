#pragma once

#include <string>
#include <vector>

#include "common/machinedescription.h"

namespace ZEL {

// Turns a registry path as a query may write it (HKLM\Software\x, HKCU\x, a key under one user's
// SID) into the long-form paths of all keys that it stands for on the machine: for each user, and
// for the virtualised copies of HKLM\Software. Letter case stays as it is written. With `isPattern`
// the path is a regular expression. Adds to `out`; for any thread.
//
// A key under Wow6432Node folds to the plain key and stays there. 0x80070057 for a null path, and
// the machine's own failure when its users can't be listed. Throws what the matching of a text
// throws. On failure `out` is unchanged. The plain keys come first, one for each user, and the
// copies behind them. Users are asked for at each call, so one who is new counts at once.
HRESULT ExpandRegistryVariants(wm::IMachineDescription& machine, const wchar_t* path,
                               bool isPattern, std::vector<std::wstring>& out);

// The same for the machine of the process. With an injected machine that one is asked.
HRESULT ExpandRegistryVariants(const wchar_t* path, bool isPattern, std::vector<std::wstring>& out);

}  // namespace ZEL
