// The appliance's accounts as links and visitors' logins ask for them.
#pragma once

#include <chrono>
#include <string>

namespace VELT::sharing {

// Whether the user database has the account.
bool OwnerExists(long long uid);

enum class AccountCheck { kRight, kWrong, kFailed };

// Asks the PAM service "velt-sharing" whether `password` is the password of the account `name`. If
// it is, `name` becomes the name that PAM knows the account by. kFailed, with a log line: PAM
// failed, or did not answer within `limit`. PAM and its modules run in a process of their own with
// the ids of this one, so what they change ends with it.
AccountCheck CheckAccount(std::string& name, const std::string& password,
                          const std::string& address, std::chrono::milliseconds limit);

}  // namespace VELT::sharing
