// GSKioThumbnailCreator.cpp - KDE's thumbnails of our documents: a KIO thumbnail plug-in that
// kio-extras' thumbnail worker loads and runs in its own process.
//
// The picture is made by the same pipeline as `ember-tide thumbnail` (GSRenderThumbnail: the
// library's pixel budgets and decoder limits, the same fit rule), in-process, under the limits in
// force (GSLimits): the largest box and the processor time of one thumbnail, the latter as a
// deadline on the calling thread. The worker cannot be given a CPU or address-space limit of its
// own without ending every other thumbnail it makes, so a slow file fails alone, as it does in
// `ember-tide cache`. Nothing thrown gets past create(): the worker is not ours, and an exception
// there would end it.
#include "fileformat/GSLimits.h"
#include "thumbnail/GSThumbnailRenderer.h"
#include "thumbnail/GSWorkDeadline.h"

#include <KIO/ThumbnailCreator>
#include <KPluginFactory>
#include <QFile>
#include <QImage>

#include <algorithm>

class GSKioThumbnailCreator : public KIO::ThumbnailCreator {
    Q_OBJECT
public:
    GSKioThumbnailCreator(QObject* parent, const QVariantList& args)
        : KIO::ThumbnailCreator(parent, args) {}

    KIO::ThumbnailResult create(const KIO::ThumbnailRequest& request) override {
        // PreviewJob hands remote files over as local copies; anything else is not ours to read.
        if (!request.url().isLocalFile()) return KIO::ThumbnailResult::fail();
        try {
            const GSLimits& limits = GSCurrentLimits();
            GSThumbnailRequest ours;
            ours.path = QFile::encodeName(request.url().toLocalFile()).toStdString();
            // The size already counts the device pixel ratio; the picture must fit both sides.
            const QSize target = request.targetSize();
            ours.maxSize =
                std::clamp(std::min(target.width(), target.height()), 1, limits.thumbnailSize);
            GSWorkDeadline deadline(limits.thumbnailCPUSeconds);
            const GSThumbnailResult result = GSRenderThumbnail(ours);
            if (result.status != GSThumbnailStatus::kOK) return KIO::ThumbnailResult::fail();
            // The library hands back PNG bytes; decoding a few hundred pixels again costs
            // milliseconds beside the preview's decode.
            QImage image;
            if (!image.loadFromData(result.png.data(), static_cast<int>(result.png.size()), "PNG"))
                return KIO::ThumbnailResult::fail();
            return KIO::ThumbnailResult::pass(image);
        } catch (...) {
            return KIO::ThumbnailResult::fail();
        }
    }
};

K_PLUGIN_CLASS_WITH_JSON(GSKioThumbnailCreator, "embertidethumbnail.json")

#include "GSKioThumbnailCreator.moc"
