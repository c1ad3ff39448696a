// Ends with 0 if the toolkit can show windows here; otherwise says why on standard output.
#include <sys/resource.h>
#include <unistd.h>

#include <QGuiApplication>
#include <QScreen>

namespace {

void Say(const QString& text) {
  const QByteArray bytes = text.trimmed().toUtf8();
  const ssize_t written = write(STDOUT_FILENO, bytes.constData(), static_cast<std::size_t>(bytes.size()));
  static_cast<void>(written);
}

// Fatal messages come one before the end of the process.
void Listen(QtMsgType type, const QMessageLogContext&, const QString& text) {
  if (type != QtFatalMsg && type != QtCriticalMsg) return;
  Say(text);
  if (type == QtFatalMsg) _exit(1);
}

}  // namespace

int main(int argc, char** argv) {
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
  qInstallMessageHandler(Listen);
  const QGuiApplication application(argc, argv);
  if (QGuiApplication::primaryScreen() == nullptr) {
    Say(QStringLiteral("it has no screen"));
    _exit(1);
  }
  _exit(0);
}
