#!/usr/bin/env python3
"""check_packaging.py ROOT [GENERATED] - the macOS bundle descriptions agree with each other and
with the code: what no compiler sees. ROOT's packaging/macos/ is read as property lists (a file
that is none fails with its parse error); GENERATED is a folder where CMake generated the Apple
branch (syntax-check.sh), whose filled-in bundle descriptions are checked too.
"""

import pathlib
import plistlib
import re
import sys
import xml.etree.ElementTree as ElementTree

IMAGE_TYPES = {"public.image", "public.jpeg", "public.png", "public.camera-raw-image"}
ENTITLEMENTS = {"com.apple.security.app-sandbox": True, "com.apple.security.files.user-selected.read-only": True}
MIME_NS = "{http://www.freedesktop.org/standards/shared-mime-info}"


def main(root, generated):
    problems = []
    macos = root / "packaging/macos"
    extension = plistlib.loads((macos / "Info.plist").read_bytes())
    host = plistlib.loads((macos / "HostInfo.plist").read_bytes())
    entitlements = plistlib.loads((macos / "ThumbnailExtension.entitlements").read_bytes())

    # The extension: its point, and a principal class implemented in ThumbnailProvider.mm.
    if extension.get("CFBundlePackageType") != "XPC!":
        problems.append("Info.plist: CFBundlePackageType must be XPC! for an app extension")
    ns_extension = extension.get("NSExtension", {})
    if ns_extension.get("NSExtensionPointIdentifier") != "com.apple.quicklook.thumbnail":
        problems.append("Info.plist: NSExtensionPointIdentifier is not com.apple.quicklook.thumbnail")
    principal = ns_extension.get("NSExtensionPrincipalClass", "")
    source = (root / "src/thumbnail/ThumbnailProvider.mm").read_text()
    name = re.escape(principal)
    if not principal or not re.search(r"@interface\s+%s\s*:\s*QLThumbnailProvider\b" % name, source) \
            or not re.search(r"@implementation\s+%s\b" % name, source):
        problems.append(f"Info.plist: principal class {principal!r} is no QLThumbnailProvider subclass "
                        "implemented in src/thumbnail/ThumbnailProvider.mm")
    attributes = ns_extension.get("NSExtensionAttributes", {})
    supported = attributes.get("QLSupportedContentTypes") or []
    if not supported:
        problems.append("Info.plist: QLSupportedContentTypes lists no content type")
    minimum = attributes.get("QLThumbnailMinimumDimension")
    if type(minimum) is not int or minimum < 0:
        problems.append("Info.plist: QLThumbnailMinimumDimension must be an integer >= 0")

    # The host declares every supported type, as data and content but no image (or the system's
    # image thumbnailer takes the files over), with the MIME type and globs of the Linux declaration.
    declared = {e.get("UTTypeIdentifier"): e for e in host.get("UTExportedTypeDeclarations", [])}
    for identifier, entry in declared.items():
        conforms = set(entry.get("UTTypeConformsTo", []))
        for needed in {"public.data", "public.content"} - conforms:
            problems.append(f"HostInfo.plist: {identifier} does not conform to {needed}")
        if conforms & IMAGE_TYPES:
            problems.append(f"HostInfo.plist: {identifier} conforms to {sorted(conforms & IMAGE_TYPES)}: "
                            "the system's image thumbnailer would take the files over")
    mime = ElementTree.parse(root / "packaging/linux/ember-tide-mime.xml").getroot()
    globs = {m.get("type"): {g.get("pattern") for g in m.iter(MIME_NS + "glob")}
             for m in mime.iter(MIME_NS + "mime-type")}
    for identifier in supported:
        if identifier not in declared:
            problems.append(f"Info.plist: {identifier} is not declared in HostInfo.plist")
            continue
        tags = declared[identifier].get("UTTypeTagSpecification", {})
        mime_types = tags.get("public.mime-type", [])
        extensions = tags.get("public.filename-extension", [])
        if not mime_types or any(t not in globs for t in mime_types):
            problems.append(f"HostInfo.plist: {identifier} names no MIME type of the Linux declaration")
            continue
        for t in mime_types:
            if {"*." + e for e in extensions} != globs[t]:
                problems.append(f"HostInfo.plist: {identifier} has the extensions {sorted(extensions)}, "
                                f"the Linux declaration of {t} the globs {sorted(globs[t])}")

    # The sandbox: read-only access to the files the user selected, nothing more.
    granted = {k: v for k, v in entitlements.items() if k.startswith("com.apple.security.")}
    if granted != ENTITLEMENTS:
        problems.append(f"ThumbnailExtension.entitlements: grants {granted}, expected exactly {ENTITLEMENTS}")

    # The bundles CMake made from these descriptions (when given): every value filled in, the
    # executables where the descriptions say, and the extension's identifier inside its host's,
    # without which the system does not accept the extension.
    if generated is not None:
        ids = []
        for target, bundle in (("EmberTideThumbnails", "EmberTideThumbnails.app"),
                               ("EmberTideThumbnailExtension", "EmberTideThumbnailExtension.appex")):
            text = (generated / bundle / "Contents" / "Info.plist").read_text()
            if "${" in text or "@MACOSX" in text:
                problems.append(f"the generated {bundle}/Contents/Info.plist keeps a placeholder")
            info = plistlib.loads(text.encode())
            link = (generated / "CMakeFiles" / f"{target}.dir" / "link.txt").read_text()
            linked = re.search(r"-o \S*?%s/Contents/MacOS/(\S+)" % re.escape(bundle), link)
            if not linked or info.get("CFBundleExecutable") != linked.group(1):
                problems.append(f"the generated {bundle} names the executable {info.get('CFBundleExecutable')!r}, "
                                f"the link writes {linked.group(1) if linked else 'none'!r}")
            ids.append(info.get("CFBundleIdentifier", ""))
        if not ids[0] or not ids[1].startswith(ids[0] + "."):
            problems.append(f"the extension's identifier {ids[1]!r} is not inside the host's {ids[0]!r}")

    for problem in problems:
        print("FAILED: packaging/macos: " + problem)
    if not problems:
        print(f"passed: packaging/macos ({principal} serves {', '.join(supported)}; sandboxed, read-only)")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]) if len(sys.argv) > 2 else None))
