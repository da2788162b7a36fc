// The appliance's accounts: of links' owners, and at visitors' logins.
#pragma once

#include <chrono>
#include <string>

namespace VELT::sharing {

// Whether the user database has the account.
bool OwnerExists(long long uid);

enum class AccountCheck { kRight, kWrong, kFailed };

// Asks the PAM service "velt-sharing" whether `password` is the password of the account `name`, for
// a visitor from `address`. If it is, `name` becomes the account's name as PAM has it. kFailed,
// with a log line, means that PAM failed or did not answer within `limit`. PAM and its modules run
// in a process of their own with the ids of this one, so they can't change this one.
AccountCheck CheckAccount(std::string& name, const std::string& password,
                          const std::string& address, std::chrono::milliseconds limit);

}  // namespace VELT::sharing
