// The appliance's accounts as links and visitors' logins ask for them.
#pragma once

#include <chrono>
#include <string>

namespace VELT::sharing {

// Whether the user database has the account.
bool OwnerExists(long long uid);

enum class AccountCheck { kRight, kWrong, kFailed };

// Asks the PAM service "velt-sharing" whether `password` is the one of the account `name`, which
// afterwards is the name that PAM knows the account by. kFailed, with a log line: PAM could not
// tell, or did not within `limit`. PAM and its modules run in a process of their own, with the ids
// of this one; what they do to it ends with it.
AccountCheck CheckAccount(std::string& name, const std::string& password,
                          const std::string& address, std::chrono::milliseconds limit);

}  // namespace VELT::sharing
