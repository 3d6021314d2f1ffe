#!/usr/bin/python3
"""Prints the bill of materials (SPDX 2.3, JSON) of a release's files: its packages with all that is in them, and what these
need, in the versions that the .buildinfo files among the arguments name. The same files give the same text on the same
machine, whose copyright files name the licences of others, at the time SOURCE_DATE_EPOCH. Debian has no tool that makes
one from packages.
Usage: sbom.py VERSION FILE...   (in the source directory: debian/copyright has the licence)"""
import hashlib
import io
import json
import os
import re
import subprocess
import sys
import tarfile
import time
from urllib.parse import quote

# What becomes part of our programs when they are built.
LINKED_STATICALLY = {"libtirpc-dev", "libcli11-dev", "nlohmann-json3-dev"}
# Names of licences in Debian's copyright files that mean the same in SPDX; others are not guessed.
LICENCES = {"Expat": "MIT", "MIT": "MIT", "BSD-2-clause": "BSD-2-Clause", "BSD-3-clause": "BSD-3-Clause",
            "Apache-2.0": "Apache-2.0", "Zlib": "Zlib", "ISC": "ISC", "GPL-2": "GPL-2.0-only", "GPL-2+": "GPL-2.0-or-later",
            "GPL-3+": "GPL-3.0-or-later", "LGPL-2.1": "LGPL-2.1-only", "LGPL-2.1+": "LGPL-2.1-or-later"}


def checksums(content, *algorithms):
    return [{"algorithm": name.upper(), "checksumValue": hashlib.new(name, content).hexdigest()} for name in algorithms]


def identifier(*parts):
    return "SPDXRef-" + "-".join(re.sub(r"[^a-zA-Z0-9.-]", "-", part.replace("+", "plus")) for part in parts)


def fields(text):
    """The fields of one paragraph of a Debian control file."""
    return {name: re.sub(r"\n[ \t]", "\n", value).strip()
            for name, value in re.findall(r"^([^\s:]+):((?:.*)(?:\n[ \t].*)*)", text, re.MULTILINE)}


def copyright_of_all(text):
    """The paragraph "Files: *" of a copyright file in Debian's format; empty where there is none."""
    for paragraph in re.split(r"\n\s*\n", text):
        if fields(paragraph).get("Files") == "*":
            return fields(paragraph)
    return {}


def licences_of(package):
    """As the copyright file on this machine names them: those of all files but Debian's own additions."""
    try:
        with open(f"/usr/share/doc/{package}/copyright", encoding="utf-8") as file:
            paragraphs = [fields(paragraph) for paragraph in re.split(r"\n\s*\n", file.read())]
    except OSError:
        return {}
    names = {paragraph["License"].split("\n")[0] for paragraph in paragraphs
             if not paragraph.get("Files", "debian/").startswith("debian/") and "License" in paragraph}
    if names and names <= LICENCES.keys():
        return {"licenseDeclared": " AND ".join(sorted({LICENCES[name] for name in names}))}
    return {"licenseComments": "Debian's copyright file names " + ", ".join(sorted(names))} if names else {}


class Document:
    def __init__(self, version):
        self.version = version
        self.packages, self.files, self.relationships = {}, {}, set()
        with open("debian/copyright", encoding="utf-8") as file:
            own = copyright_of_all(file.read())
        name, _, text = own["License"].partition("\n")
        self.extracted = [] if name in LICENCES else [
            {"licenseId": "LicenseRef-" + name, "name": name, "extractedText": text or name}]
        self.own = {"supplier": "Organization: libmsgapi maintainers", "copyrightText": own["Copyright"],
                    "licenseDeclared": LICENCES.get(name, "LicenseRef-" + name)}
        self.source = self.add(identifier("libmsgapi"), name="libmsgapi", versionInfo=version, **self.own)
        self.relate("SPDXRef-DOCUMENT", "DESCRIBES", self.source)

    def add(self, spdx_id, **values):
        self.packages.setdefault(spdx_id, {
            "SPDXID": spdx_id, "downloadLocation": "NOASSERTION", "filesAnalyzed": False,
            "licenseConcluded": "NOASSERTION", "licenseDeclared": "NOASSERTION", "copyrightText": "NOASSERTION", **values})
        return spdx_id

    def relate(self, one, relation, other):
        self.relationships.add((one, relation, other))

    def add_file_of_release(self, path, content):
        """One that is not a package: an archive or a description of the source."""
        name = os.path.basename(path)
        spdx_id = self.add(identifier("Release", name), name=name, packageFileName=name, versionInfo=self.version,
                           checksums=checksums(content, "sha256"), **self.own)
        self.relate(self.source, "GENERATES", spdx_id)

    def add_package(self, path, content, control):
        name, arch = control["Package"], control["Architecture"]
        tar = subprocess.run(["dpkg-deb", "--fsys-tarfile", path], check=True, stdout=subprocess.PIPE).stdout
        spdx_id = own_identifier(control)
        sha1s = []
        with tarfile.open(fileobj=io.BytesIO(tar)) as archive:
            for member in archive:
                if not (member.isreg() or member.islnk()):
                    continue
                sums = checksums(archive.extractfile(member).read(), "sha1", "sha256")
                sha1s.append(sums[0]["checksumValue"])
                file_id = identifier("File", name, arch, hashlib.sha256(member.name.encode()).hexdigest()[:16])
                self.files[file_id] = {"SPDXID": file_id, "fileName": member.name, "checksums": sums,
                                       "licenseConcluded": "NOASSERTION", "copyrightText": "NOASSERTION"}
                self.relate(spdx_id, "CONTAINS", file_id)
        code = hashlib.sha1("".join(sorted(sha1s)).encode()).hexdigest()
        self.add(spdx_id, name=name, versionInfo=control["Version"], packageFileName=os.path.basename(path),
                 summary=control["Description"].split("\n")[0], checksums=checksums(content, "sha256"),
                 **{**self.own, "filesAnalyzed": True, "packageVerificationCode": {"packageVerificationCodeValue": code}})
        self.relate(self.source, "GENERATES", spdx_id)

    def add_other(self, name, arch, version):
        """A package of Debian's."""
        purl = f"pkg:deb/debian/{quote(name)}" + (f"@{quote(version, safe='')}?arch={arch}" if version else "")
        return self.add(identifier("Debian", name, *((version, arch) if version else ())), name=name,
                        **({"versionInfo": version} if version else {}),
                        supplier="Organization: Debian", **licences_of(name),
                        externalRefs=[{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                                       "referenceLocator": purl}])

    def text(self):
        body = {"spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT",
                "name": f"libmsgapi-{self.version}",
                "creationInfo": {"creators": ["Organization: libmsgapi maintainers", "Tool: sbom.py"],
                                 "created": time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(int(os.environ["SOURCE_DATE_EPOCH"])))},
                "packages": [package for _, package in sorted(self.packages.items())],
                "files": [file for _, file in sorted(self.files.items())],
                "relationships": [{"spdxElementId": one, "relationshipType": relation, "relatedSpdxElement": other}
                                  for one, relation, other in sorted(self.relationships)],
                "hasExtractedLicensingInfos": self.extracted}
        digest = hashlib.sha256(json.dumps(body).encode()).hexdigest()
        body["documentNamespace"] = f"https://libmsgapi.example/spdx/libmsgapi-{self.version}-{digest}"
        return json.dumps(body, indent=1)


def own_identifier(control):
    return identifier("Package", control["Package"], control["Architecture"])


def built_with(text):
    """(name, architecture) to version, of a .buildinfo file."""
    info = fields(text)
    arch = [word for word in info["Architecture"].split() if word not in ("all", "source")][0]
    # Without an architecture: of the machine that built, which is the same when nothing was cross built.
    found = {}
    for name, other, version in re.findall(r"^([^\s:,]+)(?::(\S+))? \(= ([^)]+)\)", info["Installed-Build-Depends"], re.MULTILINE):
        if other == arch or (not other and (name, arch) not in found):
            found[name, arch] = version
    return found


def main(version, paths):
    document = Document(version)
    versions, own = {}, {}
    for path in sorted(paths, key=os.path.basename):
        with open(path, "rb") as file:
            content = file.read()
        if path.endswith(".buildinfo"):
            versions.update(built_with(content.decode()))
        elif path.endswith(".deb") or path.endswith(".ddeb"):
            control = fields(subprocess.run(["dpkg-deb", "--field", path], check=True, text=True, stdout=subprocess.PIPE).stdout)
            own[control["Package"], control["Architecture"]] = control
            document.add_package(path, content, control)
        elif not path.endswith(".changes"):
            document.add_file_of_release(path, content)
    for (_, arch), control in own.items():
        groups = ",".join(control.get(field, "") for field in ("Pre-Depends", "Depends")).split(",")
        for names in ([re.split(r"[\s:(]", choice.strip())[0] for choice in group.split("|")] for group in groups):
            mine = [own[name, kind] for name in names for kind in (arch, "all") if (name, kind) in own]
            name = next((name for name in names if (name, arch) in versions), names[0])
            if name:
                document.relate(own_identifier(control), "DEPENDS_ON", own_identifier(mine[0]) if mine
                                else document.add_other(name, arch, versions.get((name, arch))))
    for (name, arch), version_built in sorted(versions.items()):
        if name in LINKED_STATICALLY:
            document.relate(document.source, "STATIC_LINK", document.add_other(name, arch, version_built))
    print(document.text())


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    main(sys.argv[1], sys.argv[2:])
