// SPDX-License-Identifier: Apache-2.0
#include "ZelServiceAPI.h"

TSNotifyData::TSNotifyData() : source(0), sourcePlugState(0), value(0) {}

TSNotifyData::~TSNotifyData() = default;

TSZelData::TSZelData() : pid(-1), needStandbyHandling(false) {}
