# SPDX-License-Identifier: MIT
SUMMARY = "Support library and register-access command of an embedded telephone device"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=95f9c2e892630b5b98e13164a9cdd022"

inherit cmake externalsrc

EXTERNALSRC = "${@os.path.abspath(d.getVar('THISDIR') + '/../../../..')}"
EXTERNALSRC_BUILD = "${WORKDIR}/build"

EXTRA_OECMAKE = "-DCMAKE_BUILD_TYPE=MinSizeRel -DDEVSUPPORT_ANALOGSIM=OFF"

PACKAGECONFIG ??= "store"
PACKAGECONFIG[store] = "-DDEVSUPPORT_STORE=ON,-DDEVSUPPORT_STORE=OFF,db"

PACKAGES =+ "cpld devlog devconf devdoctor"
FILES:cpld = "${sbindir}/cpld"
FILES:devlog = "${bindir}/devlog ${datadir}/bash-completion/completions/devlog ${datadir}/devsupport"
FILES:devconf = "${sbindir}/devconf ${datadir}/bash-completion/completions/devconf"
FILES:devdoctor = "${sbindir}/devdoctor ${datadir}/bash-completion/completions/devdoctor"
