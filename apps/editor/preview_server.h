// Preview in Browser: `formwiz serve` on a folder of its own that holds the
// page, so that the browser shows the page as a visitor gets it and its
// forms can really be sent (without mail settings the server stores what
// is sent). One server for the editor's life; it is started when first
// needed, started again when it died or the page changed, and stopped with
// the editor.
#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <QUrl>
#include <optional>

namespace formwiz::editor {

class PreviewServer {
 public:
  // `program` is the formwiz program to run.
  explicit PreviewServer(QString program);
  ~PreviewServer();
  PreviewServer(const PreviewServer&) = delete;
  PreviewServer& operator=(const PreviewServer&) = delete;

  // The formwiz program beside the editor's: in the same folder once
  // installed, in the build tree's apps/formwiz next to apps/editor.
  static QString FindProgram();

  // Writes `html` into the server's folder as `name` (a file name, no
  // folders) and gives the page's address on the running server. Nothing,
  // with the reason in `error`, when the page cannot be written or the
  // server does not start (or does not say where it listens) in time.
  // The files the page loads (stylesheets, pictures, scripts) that lie in
  // `folder` or below it, the page file's own folder, are copied beside it
  // each time, so that the browser shows what a visitor gets; only those,
  // so that no other file of that folder is served. Files that are missing
  // or lie outside `folder` are left out.
  std::optional<QUrl> Publish(const QString& name, const QByteArray& html,
                              QString& error, const QString& folder = {});

  // At most this many files, and this many bytes of them, are copied.
  static constexpr int kMaxCopiedFiles = 256;
  static constexpr qint64 kMaxCopiedBytes = qint64{64} << 20;

  // Stops the server, waiting for it a bounded time.
  void Stop();
  bool IsRunning() const;
  // The server's process, for a test that ends it.
  qint64 ProcessId() const { return process_.processId(); }
  // Where submissions are stored: the server's data folder.
  QString DataFolder() const;

 private:
  bool Start(QString& error);
  // Copies what the page loads from `folder` into the site folder.
  void CopyLoadedFiles(const QString& name, const QByteArray& html,
                       const QString& folder);
  QString LogFile() const;

  QString program_;
  QTemporaryDir dir_;
  QProcess process_;
  QUrl base_;
  // What the running server was started on; a change means a restart,
  // since the server reads the recipients a page allows once, at start.
  QString served_name_;
  QByteArray served_html_;
};

}  // namespace formwiz::editor
