// The toolkit's application, which there has to be while a window is shown.
#pragma once
#include <QApplication>
#include <memory>
#include <string>

#include "pantiq/platform/PQPlatform.h"

namespace pantiq::qt {

// Uses the application of the process, or makes one for as long as this object lives. The process's locale stays as it
// is, and what the toolkit says goes nowhere.
class Application {
 public:
  explicit Application(PQPlatformResult& result);
  ~Application();
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

 private:
  std::unique_ptr<QApplication> own_;
  QtMessageHandler handler_ = nullptr;
};

}  // namespace pantiq::qt
