// VELT.Core.SignIn: owners sign in, see and end their sessions, and make tokens for programs.
#include "apps/signin/Methods.h"
#include "declared/VELT.Core.SignIn.h"
#include "veltwebapi/APITable.h"

namespace VELT {

extern "C" __attribute__((visibility("default"))) const APITableEntry* GetAPITable() {
  using namespace signin;  // NOLINT(google-build-using-namespace): every row is of it
  static constexpr APITableEntry kTable[] = {params::Entry<params::SignInLogin>(Login),
                                             params::Entry<params::SignInLogout>(Logout),
                                             params::Entry<params::SignInGet>(Get),
                                             params::Entry<params::SignInSessionList>(SessionList),
                                             params::Entry<params::SignInSessionEnd>(SessionEnd),
                                             params::Entry<params::SignInTokenCreate>(TokenCreate),
                                             params::Entry<params::SignInTokenList>(TokenList),
                                             params::Entry<params::SignInTokenDelete>(TokenDelete),
                                             {}};
  return kTable;
}

extern "C" __attribute__((visibility("default"))) const APICheckTableEntry* GetAPICheckTable() {
  return params::AllMethods::kChecks;
}

}  // namespace VELT
