// Whether a page is shown by a phone's browser.
#pragma once

class WebMan;

class MobileDetector {
 public:
  explicit MobileDetector(WebMan& page);

  // The browser calls itself mobile.
  bool IsMobile() const { return mobile_; }

 private:
  bool mobile_;
};
