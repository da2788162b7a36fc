// Sends a message by the system's `sendmail` program (sendmail(1) of Postfix, Exim and others).
#pragma once

#include <string>

namespace VELT::tools {

struct Mail {
  std::string id;  // of the message; in its Message-ID, so that a repeat can be told
  std::string to;
  std::string from;  // empty: the program's choice
  std::string site;  // the domain of the Message-ID
  std::string subject;
  std::string text;
};

// The whole message: RFC 5322, with text and subject in UTF-8 (RFC 2045, RFC 2047), with the
// system's line ends.
std::string MessageOf(const Mail& mail);

// Hands the message to the program, which takes it over when it ends with 0. Returns why it has
// not, or "".
std::string SendMail(const std::string& program, const Mail& mail);

}  // namespace VELT::tools
