# SPDX-License-Identifier: MIT
include $(sort $(wildcard $(BR2_EXTERNAL_DEVSUPPORT_PATH)/package/*/*.mk))
