// Whether a page is shown by the browser of a phone.
#pragma once

class WebMan;

class MobileDetector {
 public:
  explicit MobileDetector(WebMan& page);

  // Whether the browser's user agent says that it is a mobile one.
  bool IsMobile() const { return mobile_; }

 private:
  bool mobile_;
};
