#include "preview_server.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <string>
#include <string_view>

#include "host/page_references.h"

namespace formwiz::editor {
namespace {

// The server answers in well under a second; this bounds a server that
// hangs before it says where it listens.
constexpr int kStartMs = 10000;
constexpr int kStopMs = 5000;
// The first line is short ("listening on http://127.0.0.1:PORT/"); a
// longer one is no answer.
constexpr qsizetype kMaxLine = 4096;
constexpr char kListening[] = "listening on ";

}  // namespace

PreviewServer::PreviewServer(QString program) : program_(std::move(program)) {
  // What the server writes after its first line is not needed, but it must
  // be read, or a full pipe would stop the server: it is dropped as it
  // comes. Its error output goes to a file, read when it fails to start.
  QObject::connect(&process_, &QProcess::readyReadStandardOutput, [this] {
    if (base_.isValid()) process_.readAllStandardOutput();
  });
}

PreviewServer::~PreviewServer() { Stop(); }

QString PreviewServer::FindProgram() {
  const QDir here(QCoreApplication::applicationDirPath());
  for (const QString& candidate :
       {here.filePath("formwiz"), here.filePath("../formwiz/formwiz")}) {
    const QFileInfo info(candidate);
    if (info.isFile() && info.isExecutable()) return info.canonicalFilePath();
  }
  // Not found: the error says where it was looked for.
  return here.filePath("formwiz");
}

bool PreviewServer::IsRunning() const {
  return process_.state() == QProcess::Running && base_.isValid();
}

QString PreviewServer::DataFolder() const { return dir_.filePath("data"); }

QString PreviewServer::LogFile() const { return dir_.filePath("serve.log"); }

std::optional<QUrl> PreviewServer::Publish(const QString& name,
                                           const QByteArray& html,
                                           QString& error,
                                           const QString& folder) {
  if (!dir_.isValid()) {
    error =
        QCoreApplication::translate("PreviewServer", "no temporary folder: %1")
            .arg(dir_.errorString());
    return std::nullopt;
  }
  if (IsRunning() && name == served_name_ && html == served_html_) {
    // A stylesheet may have been edited since: the server reads files as
    // they are asked for, so copying them again is enough.
    CopyLoadedFiles(name, html, folder);
    return base_.resolved(QUrl(QUrl::toPercentEncoding(name)));
  }
  Stop();
  QDir site(dir_.filePath("site"));
  // Only this page and its files are in the folder: an older name goes.
  site.removeRecursively();
  QSaveFile file(site.filePath(name));
  if (!QDir().mkpath(site.path()) || !file.open(QIODevice::WriteOnly) ||
      file.write(html) != html.size() || !file.commit()) {
    error = QCoreApplication::translate("PreviewServer",
                                        "the page cannot be written: %1")
                .arg(file.errorString());
    return std::nullopt;
  }
  CopyLoadedFiles(name, html, folder);
  if (!Start(error)) return std::nullopt;
  served_name_ = name;
  served_html_ = html;
  return base_.resolved(QUrl(QUrl::toPercentEncoding(name)));
}

void PreviewServer::CopyLoadedFiles(const QString& name, const QByteArray& html,
                                    const QString& folder) {
  const QString from = QFileInfo(folder).canonicalFilePath();
  if (folder.isEmpty() || from.isEmpty()) return;
  const QDir site(dir_.filePath("site"));
  int files = 0;
  qint64 bytes = 0;
  for (const std::string& reference : host::PageReferences(
           std::string_view(html.constData(), size_t(html.size())))) {
    // Only a relative path: an address with a scheme or a host, or one from
    // the site's root, names nothing that is known to be beside the page.
    const QUrl url(QString::fromStdString(reference));
    if (!url.isValid() || !url.isRelative() || !url.host().isEmpty() ||
        url.path().isEmpty() || url.path().startsWith('/')) {
      continue;
    }
    const QString path = QDir::cleanPath(url.path());
    // The server refuses any segment that starts with a dot, and ".." would
    // lead out of the folder; the page itself is the one being edited, not
    // its saved file.
    if (path.startsWith('.') || path.contains(QLatin1String("/.")) ||
        path == name) {
      continue;
    }
    const QFileInfo source(QDir(from).filePath(path));
    const QString real = source.canonicalFilePath();
    if (!source.isFile() || !real.startsWith(from + '/')) continue;
    if (++files > kMaxCopiedFiles ||
        (bytes += source.size()) > kMaxCopiedBytes) {
      return;
    }
    const QString target = site.filePath(path);
    QDir().mkpath(QFileInfo(target).absolutePath());
    QFile::remove(target);
    QFile::copy(real, target);
  }
}

bool PreviewServer::Start(QString& error) {
  base_ = QUrl();
  process_.setProgram(program_);
  process_.setArguments({"serve", "--listen", "127.0.0.1:0", "--data",
                         DataFolder(), dir_.filePath("site")});
  process_.setStandardErrorFile(LogFile());
  process_.start(QIODevice::ReadOnly);
  if (!process_.waitForStarted(kStartMs)) {
    error =
        QCoreApplication::translate("PreviewServer", "%1 cannot run: %2")
            .arg(QDir::toNativeSeparators(program_), process_.errorString());
    process_.kill();
    process_.waitForFinished(kStopMs);
    return false;
  }
  const QDeadlineTimer deadline(kStartMs);
  while (!process_.canReadLine() && process_.bytesAvailable() < kMaxLine &&
         process_.state() == QProcess::Running && !deadline.hasExpired()) {
    process_.waitForReadyRead(int(deadline.remainingTime()));
  }
  const QString line = QString::fromUtf8(process_.readLine(kMaxLine)).trimmed();
  const QUrl url(line.mid(int(qstrlen(kListening))));
  if (!line.startsWith(kListening) || !url.isValid() ||
      url.scheme() != "http") {
    // What the server said on its way out is the reason.
    process_.kill();
    process_.waitForFinished(kStopMs);
    QFile log(LogFile());
    QString said;
    if (log.open(QIODevice::ReadOnly)) {
      said = QString::fromUtf8(log.read(kMaxLine)).trimmed();
    }
    if (said.isEmpty()) {
      said = deadline.hasExpired()
                 ? QCoreApplication::translate("PreviewServer",
                                               "it did not start in time")
                 : QCoreApplication::translate("PreviewServer",
                                               "it stopped without a word");
    }
    error = QCoreApplication::translate("PreviewServer",
                                        "the preview server did not start: %1")
                .arg(said);
    return false;
  }
  base_ = url;
  return true;
}

void PreviewServer::Stop() {
  base_ = QUrl();
  served_name_.clear();
  served_html_.clear();
  if (process_.state() == QProcess::NotRunning) return;
  // SIGTERM: the server finishes the requests under way and stops.
  process_.terminate();
  if (!process_.waitForFinished(kStopMs)) {
    process_.kill();
    process_.waitForFinished(kStopMs);
  }
}

}  // namespace formwiz::editor
