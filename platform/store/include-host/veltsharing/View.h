// Whose request the store serves, for the host, the tools and tests.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "veltsharing/Entry.h"

namespace VELT::sharing {

// What a request finds in the store and may change there. Visitors find no link that is disabled or
// whose owner has no account any more, which takes no longer than an unknown one; they change no
// links and list none, but log in and out. Owners do everything else. Nobody is refused everything.
struct View {
  enum class Of { kNobody, kVisitor, kOwner };

  Of of = Of::kNobody;
  std::string address = {};  // the visitor's, in text form; empty if not known
  std::vector<std::string> projects =
      {};  // whose links alone an owner sees and changes; empty: all
  // What became of the request's login, if it made one. A visit is one that was counted; braked:
  // refused without being judged, since too many had failed.
  enum class LoginOutcome { kNone, kVisit, kRefused, kBraked };
  LoginOutcome login = LoginOutcome::kNone;
  // Set when a login was refused because too many had failed: the seconds until the next try.
  std::int64_t login_wait = 0;
};

// `address` loses its IPv6 zone, which is the server's own.
View VisitorView(const std::string& address);

// Lends a view, which must outlive it, to the store: all calls are those of its request until this
// object ends. Then those of the view that was lent before, or nobody's.
class Viewing {
 public:
  explicit Viewing(View& view);
  ~Viewing();
  Viewing(const Viewing&) = delete;
  Viewing& operator=(const Viewing&) = delete;

 private:
  View* const before_;
};

// The link of a visitor's request and the visit to it.
struct Visit {
  record::Entry link = {};  // without an id (0) when the visitor finds none
  bool is_legal = false;    // the session holds a legal token for the link
  bool use_due = false;     // NoteUse should be called once the request is answered
};

// Both texts may be anything. Reads only. Nothing is found when the database can't be used.
Visit FindVisit(const std::string& link, const std::string& sid);

// Notes that the session is in use, which lets it live on.
void NoteUse(const std::string& sid);

}  // namespace VELT::sharing
