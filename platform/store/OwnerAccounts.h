// The row of an owner's account, to which sessions and tokens belong.
#pragma once

#include <string>

#include "platform/store/sql/Connection.h"
#include "platform/store/sql/StoreSession.h"

namespace VELT::sharing::owners {

inline constexpr long long kNoteEvery = 5 * 60;  // seconds between two notes of the last use

// Connection::RunWithReserve on the store's database.
bool Run(const char* task, const db::Connection::Work& work);

// Whether PAM must be asked about an account again that it was asked about at `checked_at`.
bool IsCheckDue(long long checked_at, long long now);

// Both are to be called in a transaction and throw soci::soci_error.

// The id of the account's row, which is made if it is missing. An account with another uid is another
// account: what belonged to the earlier one of this name is removed.
long long EnsureAccount(db::StoreSession& store, const std::string& name, unsigned int uid);

// Notes that PAM has admitted the account now, or refused it (`credential` is empty). Ends the
// sessions that began with another password.
void NoteChecked(db::StoreSession& store, const std::string& name, const std::string& credential);

}  // namespace VELT::sharing::owners
