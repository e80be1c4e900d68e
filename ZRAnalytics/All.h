// Everything that an application needs. A transport and names of locales are apart: Transport/CurlTransport.h,
// Locale/ICULocale.h.
#pragma once

#include "Platform/Formats/JSON.h"
#include "Platform/HostServices.h"
#include "ZRAnalytics/Constants/ZRAnalyticsConstants.h"
#include "ZRAnalytics/Journal/ZRJournal.h"
#include "ZRAnalytics/Utils/PayloadBuilder/ZRPayloadBuilder.h"
#include "ZRAnalytics/Utils/PayloadBuilder/ZRProperties.h"
#include "ZRAnalytics/Utils/ZRConditionEvaluator/ZREventCondition.h"
#include "ZRAnalytics/ZRAnalytics.h"
#include "ZRAnalytics/ZRHosting.h"
#include "ZRAnalytics/ZRVersion.h"
#include "ZorvaneCore/CoreSetup.h"
#include "ZorvaneCore/ZREventTriggerDelegate.h"
#include "ZorvaneCore/ZRLogger.h"
#include "ZorvaneCore/ZRStandardErrorLog.h"
