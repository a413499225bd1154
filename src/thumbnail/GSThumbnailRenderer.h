// GSThumbnailRenderer.h - the raster thumbnail pipeline: document -> preview bytes -> decoded
// picture -> fitted size -> scaled picture -> PNG.
//
// The extraction and the fit rule are the same ones the platform providers use; this is the
// renderer for platforms without a system image service. The pixel size is fitted from the
// document's own width and height, or from the picture's when the document states none.
#pragma once

#include "objects/GSDynaArray.h"
#include "objects/GSTSize.h"
#include "thumbnail/GSPNGWriter.h"

#include <string>
#include <vector>

enum class GSThumbnailStatus {
    kOK,
    kCannotOpen,  // the file could not be read at all
    kNoPreview,   // not a document, a selection, or a document without a preview
    kUndecodable, // a preview whose bytes are no picture we can decode
};

struct GSThumbnailRequest {
    std::string path;
    int maxSize = 256; // the thumbnail fits into maxSize x maxSize
    GSPNGText text;    // PNG text keys to write
};

struct GSThumbnailResult {
    GSThumbnailStatus status = GSThumbnailStatus::kNoPreview;
    std::string message;
    std::vector<unsigned char> png;
    GSTSize<int> size;        // of the thumbnail
    GSTSize<int> previewSize; // the size the fit used
    int kind = 0;
};

// Never throws: exceptions of the framework are turned into kNoPreview with their message.
GSThumbnailResult GSRenderThumbnail(const GSThumbnailRequest& request);

// The part after extraction: preview bytes of `kind` -> thumbnail fitted into maxSize x maxSize,
// by the document's stated size when given (null: the picture's own). Never throws.
GSThumbnailResult GSRenderPreview(const GSDynaArray<unsigned char>& bytes, int kind,
                                  const GSTSize<int>* statedSize, int maxSize,
                                  const GSPNGText& text);
