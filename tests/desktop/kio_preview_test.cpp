// kio_preview_test.cpp - KDE shows our pictures: a real KIO::PreviewJob, served by kio-extras'
// thumbnail worker with our plug-in on Qt's plug-in path, returns the tool's own thumbnail.
//
// Usage: kio_preview_test PLUGIN_DIR MIME_XML TOOL EXAMPLES. The MIME type is registered in a
// private data folder, and the cache, settings and sockets are private too: nothing of the
// machine's is read or written. Exits 77 (skipped, never a pass) without the worker.
#include <KFileItem>
#include <KIO/PreviewJob>
#include <QDirIterator>
#include <QEventLoop>
#include <QGuiApplication>
#include <QLibraryInfo>
#include <QPixmap>
#include <QProcess>
#include <QTemporaryDir>
#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 5) return 2;
    const QString examples = argv[4];
    QTemporaryDir tmp;
    const QString mime = tmp.path() + "/share/mime";
    qputenv("XDG_CACHE_HOME", (tmp.path() + "/cache").toUtf8());
    qputenv("XDG_CONFIG_HOME", (tmp.path() + "/config").toUtf8());
    qputenv("XDG_RUNTIME_DIR", tmp.path().toUtf8()); // the worker's socket; 0700 as it must be
    qputenv("XDG_DATA_DIRS", (tmp.path() + "/share:/usr/share").toUtf8());
    qputenv("QT_PLUGIN_PATH", argv[1]);
    qputenv("QT_QPA_PLATFORM", "offscreen");
    if (!QFile::exists(QLibraryInfo::location(QLibraryInfo::PluginsPath) +
                       "/kf5/kio/thumbnail.so") ||
        !QDir().mkpath(mime + "/packages") || !QFile::copy(argv[2], mime + "/packages/et.xml") ||
        QProcess::execute("update-mime-database", {mime}) != 0)
        return std::puts("SKIPPED: no kio-extras thumbnail worker or update-mime-database"), 77;
    QGuiApplication app(argc, argv);

    struct Row {
        QString file;
        int size;
        bool shown;
    } rows[] = {{examples + "/landscape-v2-inline.etd", 256, true},
                {examples + "/tall-v3-byte-record.etd", 128, true},
                {examples + "/transparent-v3-long-system-record.etd", 256, true},
                {examples + "/selection-v2.etd", 256, false}}; // *.etd, but no preview in it
    // As Dolphin asks: every plug-in found is enabled unless the user chose otherwise.
    const QStringList plugins = KIO::PreviewJob::defaultPlugins();
    int failures = 0, shown = 0;
    for (const Row& row : rows) {
        QImage got, want;
        bool failed = false;
        auto* job = new KIO::PreviewJob({KFileItem(QUrl::fromLocalFile(row.file))},
                                        QSize(row.size, row.size), &plugins);
        QObject::connect(job, &KIO::PreviewJob::gotPreview,
                         [&](const KFileItem&, const QPixmap& p) { got = p.toImage(); });
        QObject::connect(job, &KIO::PreviewJob::failed, [&] { failed = true; });
        QEventLoop loop;
        QObject::connect(job, &KJob::result, &loop, &QEventLoop::quit);
        loop.exec();
        const QString png = tmp.path() + "/tool.png", size = QString::number(row.size);
        if (QProcess::execute(argv[3], {"thumbnail", "-s", size, row.file, png}) == 0)
            want.load(png);
        // The worker hands pictures over premultiplied, which rounds the colour of translucent
        // pixels: compared as the screen shows them, alpha included.
        const QImage::Format argb = QImage::Format_ARGB32_Premultiplied;
        const bool ok =
            row.shown ? !got.isNull() && got.convertToFormat(argb) == want.convertToFormat(argb)
                      : failed && got.isNull();
        std::printf("%s %s at %d: got %dx%d, the tool %dx%d\n", ok ? "ok  " : "FAIL",
                    qPrintable(QFileInfo(row.file).fileName()), row.size, got.width(), got.height(),
                    want.width(), want.height());
        failures += !ok;
        shown += !got.isNull();
    }
    // The metadata asks for caching: each picture shown is in the freedesktop cache.
    int cached = 0;
    for (QDirIterator it(tmp.path() + "/cache/thumbnails", {"*.png"}, QDir::Files,
                         QDirIterator::Subdirectories);
         it.hasNext(); it.next())
        ++cached;
    std::printf("%s %d of %d pictures cached\n", cached == shown ? "ok  " : "FAIL", cached, shown);
    std::fflush(stdout);
    return failures || cached != shown;
}
