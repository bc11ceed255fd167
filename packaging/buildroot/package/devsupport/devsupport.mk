################################################################################
#
# devsupport
#
################################################################################
# SPDX-License-Identifier: MIT

DEVSUPPORT_VERSION = 0.1.0
DEVSUPPORT_SITE = $(BR2_EXTERNAL_DEVSUPPORT_PATH)/../..
DEVSUPPORT_SITE_METHOD = local
DEVSUPPORT_LICENSE = MIT
DEVSUPPORT_LICENSE_FILES = LICENSE
DEVSUPPORT_INSTALL_STAGING = YES
DEVSUPPORT_SUPPORTS_IN_SOURCE_BUILD = NO
DEVSUPPORT_CONF_OPTS = \
	-DCMAKE_BUILD_TYPE=MinSizeRel \
	-DDEVSUPPORT_ANALOGSIM=OFF

ifeq ($(BR2_PACKAGE_DEVSUPPORT_STORE),y)
DEVSUPPORT_DEPENDENCIES += berkeleydb
DEVSUPPORT_CONF_OPTS += -DDEVSUPPORT_STORE=ON
else
DEVSUPPORT_CONF_OPTS += -DDEVSUPPORT_STORE=OFF
endif

$(eval $(cmake-package))
