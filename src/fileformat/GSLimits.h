// GSLimits.h - every bound that a stranger's file meets, in one place.
//
// A document, its preview and the picture inside come from anyone; each size read from them is
// checked against one of these limits before memory is taken or work is done. The defaults
// below are safe for a thumbnailer on an ordinary desktop; the tool, the fuzzers and the tests
// may tighten them (never loosen: a value above its default is brought down to it), for
// instance so that a fuzzer finds the refusal paths with small inputs. Set them before files are
// read on other threads; reading them is free.
#pragma once

struct GSLimits {
    // How deeply object records may nest (an object's body holding records): reading deeper is a
    // failed read, so no file can make reading recurse without bound. Writers of nested values
    // (dictionaries in dictionaries) refuse to go deeper than a reader will follow.
    int objectDepth = 64;
    // Pixels (width x height) that a picture's header may state: 100 megapixels.
    long declaredPixels = 100L * 1000 * 1000;
    // Pixels that one decode may hold whole, after JPEG's DCT scaling (an interlaced PNG is held
    // whole too): 24 Mi, at most 4 bytes each.
    long decodedPixels = 24L * 1024 * 1024;
    // The widest picture streamed row by row into the scaler (a one-pass PNG): its size is bounded
    // by declaredPixels, its rows (the decoder's two and ours, up to 8 bytes a pixel) by the
    // widest side a JPEG may have.
    long streamedWidth = 65535;
    // Working memory of the JPEG decoder: progressive and multi-scan pictures keep all their
    // coefficients (2 bytes each, 64 per block) while the scans arrive, whatever the output scale.
    long jpegMemory = 96L * 1024 * 1024;
    // Scans of a JPEG. Real encoders write few: a progressive script has 10 for colour pictures,
    // 6 for grey and 18 for CMYK, at most 60 for the ten components a frame may have. Every scan
    // costs a pass over the picture's coefficients, however little it codes, so a stranger's
    // file of thousands of empty scans would take minutes; beyond this many, the picture is
    // refused as soon as the scan begins.
    int jpegScans = 100;
    // An entry of the thumbnail cache read back whole: a real one is a few hundred kilobytes.
    long cacheEntryBytes = 64L * 1024 * 1024;
    // An image file that `create` takes as a preview: what real encoders write for the largest
    // declared picture. Noise saved as a CMYK JPEG at quality 100 takes 6.3 bytes a pixel, the
    // most of any encoder setting; the largest PNG that a thumbnail can decode (decodedPixels of
    // 16-bit RGBA) is under 202 MB. 6.5 bytes a pixel of declaredPixels: 650 MB.
    long imageFileBytes = 650L * 1000 * 1000;
    // Processor time of one thumbnail. A thumbnail takes milliseconds; the most that a
    // well-formed document can ask for, a JPEG preview of 100 million pixels of noise (117 MB)
    // fitted into 4096 x 4096, takes under 5 s on a slow virtual core, 1.5 s at the desktop's
    // largest size (1024): three times that still ends a parser caught in a loop long before a
    // user gives up on the folder. And its address space: the decoders'
    // budgets, a 4096 x 4096 result and its PNG, the preview's bytes and the program's mappings
    // fit in well under 1 GiB.
    int thumbnailCPUSeconds = 15;
    // The largest box a thumbnail may be asked to fit (pixels a side), whoever asks: the tool's
    // --size, a desktop plug-in's request.
    int thumbnailSize = 4096;
    long thumbnailAddressSpace = 1L << 30;
};

// The limits in force.
const GSLimits& GSCurrentLimits();

// Takes each limit of `tighter` that is below the one in force.
void GSTightenLimits(const GSLimits& tighter);
