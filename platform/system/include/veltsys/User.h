// The appliance's accounts as the C library's user database has them (passwd(5), nsswitch.conf(5)).
#pragma once

#include <sys/types.h>

#include <string>

struct VELTUSER {
  std::string name;
  uid_t uid;
  gid_t gid;  // the primary group
};

// Looks up the account with `uid`. Returns 0 and sets `*user` to a record that the caller releases
// with VELTUserFree. Returns -1 and sets `*user` to null when there is no such account or the
// database can't be read. Several threads may call it at once.
int VELTUserGetByUID(uid_t uid, VELTUSER** user);

// Releases a record of VELTUserGetByUID; null is allowed.
void VELTUserFree(VELTUSER* user);
