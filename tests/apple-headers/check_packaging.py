#!/usr/bin/env python3
"""check_packaging.py - the macOS bundle descriptions agree with each other and with the code.

Run by syntax-check.sh as `check_packaging.py ROOT [GENERATED]`, GENERATED being a build
folder where CMake generated the Apple branch. It reads packaging/macos/ (the extension's
Info.plist, the host's HostInfo.plist, the extension's entitlements) as property lists and checks
what no compiler sees: the extension point and principal class (which must be a
QLThumbnailProvider subclass implemented in ThumbnailProvider.mm), that every supported content
type is declared by the host, that the declared type conforms to public.data and public.content
but not to an image type (or the system's image thumbnailer takes the files over), that its
filename extension and MIME type are the ones the Linux MIME declaration uses, and that the
sandbox grants exactly read-only access to user-selected files. In GENERATED it checks the
bundles' filled-in descriptions.
"""

import pathlib
import plistlib
import re
import sys
import xml.etree.ElementTree as ElementTree

IMAGE_TYPES = {"public.image", "public.jpeg", "public.png", "public.camera-raw-image"}
ENTITLEMENTS = {
    "com.apple.security.app-sandbox": True,
    "com.apple.security.files.user-selected.read-only": True,
}
MIME_NS = "{http://www.freedesktop.org/standards/shared-mime-info}"


def main(root: pathlib.Path, generated) -> int:
    problems = []

    def load(name):
        try:
            with open(root / name, "rb") as f:
                value = plistlib.load(f)
        except Exception as e:  # any parse failure is the finding
            problems.append(f"{name}: not a property list ({e})")
            return {}
        if not isinstance(value, dict):
            problems.append(f"{name}: the top level is not a dictionary")
            return {}
        return value

    extension = load("packaging/macos/Info.plist")
    host = load("packaging/macos/HostInfo.plist")
    entitlements = load("packaging/macos/ThumbnailExtension.entitlements")

    # The extension.
    if extension.get("CFBundlePackageType") != "XPC!":
        problems.append("Info.plist: CFBundlePackageType must be XPC! for an app extension")
    ns_extension = extension.get("NSExtension", {})
    if ns_extension.get("NSExtensionPointIdentifier") != "com.apple.quicklook.thumbnail":
        problems.append("Info.plist: NSExtensionPointIdentifier is not com.apple.quicklook.thumbnail")
    principal = ns_extension.get("NSExtensionPrincipalClass", "")
    source = (root / "src/thumbnail/ThumbnailProvider.mm").read_text()
    if not principal or not re.search(
        r"@interface\s+%s\s*:\s*QLThumbnailProvider\b" % re.escape(principal), source
    ) or not re.search(r"@implementation\s+%s\b" % re.escape(principal), source):
        problems.append(
            f"Info.plist: principal class {principal!r} is no QLThumbnailProvider subclass "
            "implemented in src/thumbnail/ThumbnailProvider.mm"
        )
    attributes = ns_extension.get("NSExtensionAttributes", {})
    supported = attributes.get("QLSupportedContentTypes")
    if not isinstance(supported, list) or not supported:
        problems.append("Info.plist: QLSupportedContentTypes lists no content type")
        supported = []
    minimum = attributes.get("QLThumbnailMinimumDimension")
    if not isinstance(minimum, int) or isinstance(minimum, bool) or minimum < 0:
        problems.append("Info.plist: QLThumbnailMinimumDimension must be an integer >= 0")

    # The host's type declaration.
    declared = {}
    for entry in host.get("UTExportedTypeDeclarations", []):
        identifier = entry.get("UTTypeIdentifier")
        declared[identifier] = entry
        conforms = set(entry.get("UTTypeConformsTo", []))
        for needed in ("public.data", "public.content"):
            if needed not in conforms:
                problems.append(f"HostInfo.plist: {identifier} does not conform to {needed}")
        if conforms & IMAGE_TYPES:
            problems.append(
                f"HostInfo.plist: {identifier} conforms to {sorted(conforms & IMAGE_TYPES)}: "
                "the system's image thumbnailer would take the files over"
            )
    for identifier in supported:
        if identifier not in declared:
            problems.append(f"Info.plist: {identifier} is not declared in HostInfo.plist")

    # The same files as on Linux: the MIME type and its filename globs.
    mime = ElementTree.parse(root / "packaging/linux/ember-tide-mime.xml").getroot()
    globs = {
        m.get("type"): {g.get("pattern") for g in m.iter(MIME_NS + "glob")}
        for m in mime.iter(MIME_NS + "mime-type")
    }
    for identifier in supported:
        tags = declared.get(identifier, {}).get("UTTypeTagSpecification", {})
        mime_types = tags.get("public.mime-type", [])
        if isinstance(mime_types, str):
            mime_types = [mime_types]
        extensions = tags.get("public.filename-extension", [])
        if isinstance(extensions, str):
            extensions = [extensions]
        if not mime_types or any(t not in globs for t in mime_types):
            problems.append(f"HostInfo.plist: {identifier} names no MIME type of the Linux declaration")
            continue
        for t in mime_types:
            if {"*." + e for e in extensions} != globs[t]:
                problems.append(
                    f"HostInfo.plist: {identifier} has the extensions {sorted(extensions)}, "
                    f"the Linux declaration of {t} the globs {sorted(globs[t])}"
                )

    # The sandbox.
    granted = {k: v for k, v in entitlements.items() if k.startswith("com.apple.security.")}
    if granted != ENTITLEMENTS:
        problems.append(
            f"ThumbnailExtension.entitlements: grants {granted}, expected exactly {ENTITLEMENTS}"
        )

    # The bundles CMake made from these descriptions (when given): every value filled in, the
    # executables where the descriptions say, and the extension's identifier inside its host's,
    # without which the system does not accept the extension.
    if generated is not None:
        bundles = {}
        for target, bundle in (
            ("EmberTideThumbnailExtension", "EmberTideThumbnailExtension.appex"),
            ("EmberTideThumbnails", "EmberTideThumbnails.app"),
        ):
            path = generated / bundle / "Contents" / "Info.plist"
            if not path.is_file():
                problems.append(f"the generated {bundle} has no Contents/Info.plist")
                continue
            text = path.read_text()
            if "${" in text or "@MACOSX" in text:
                problems.append(f"the generated {bundle}/Contents/Info.plist keeps a placeholder")
            info = plistlib.loads(path.read_bytes())
            link = (generated / "CMakeFiles" / f"{target}.dir" / "link.txt").read_text()
            linked = re.search(r"-o \S*?%s/Contents/MacOS/(\S+)" % re.escape(bundle), link)
            if not linked or info.get("CFBundleExecutable") != linked.group(1):
                problems.append(
                    f"the generated {bundle} names the executable "
                    f"{info.get('CFBundleExecutable')!r}, the link writes "
                    f"{linked.group(1) if linked else 'none'!r}"
                )
            bundles[target] = info
        if len(bundles) == 2:
            host_id = bundles["EmberTideThumbnails"].get("CFBundleIdentifier", "")
            extension_id = bundles["EmberTideThumbnailExtension"].get("CFBundleIdentifier", "")
            if not host_id or not extension_id.startswith(host_id + "."):
                problems.append(
                    f"the extension's identifier {extension_id!r} is not inside the host's {host_id!r}"
                )

    for problem in problems:
        print("FAILED: packaging/macos: " + problem)
    if not problems:
        print(
            f"passed: packaging/macos ({principal} serves {', '.join(supported)}; "
            "sandboxed, read-only)"
        )
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(
        main(
            pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else "."),
            pathlib.Path(sys.argv[2]) if len(sys.argv) > 2 else None,
        )
    )
