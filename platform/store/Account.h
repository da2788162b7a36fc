// The appliance's accounts at visitor login, through PAM.
#pragma once

#include <string>

namespace VELT::sharing {

enum class AccountCheck { kRight, kWrong, kFailed };

// Asks the PAM service "velt-sharing" whether `password` is the one of the account `name`, which
// afterwards is the name that PAM knows the account by. kFailed, with a log line: PAM could not
// tell.
AccountCheck CheckAccount(std::string& name, const std::string& password,
                          const std::string& address);

}  // namespace VELT::sharing
