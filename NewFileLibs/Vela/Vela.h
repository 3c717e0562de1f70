// Vela.h: everything a host needs, in one include: the foundation services (time values,
// undo, streams, containers, XML, notifications, real-time memory, errors) and the MIDI
// library itself. Each header states its own threading and real-time guarantees.
#pragma once

// Foundation
#include "Cmn_Assert.h"
#include "Cmn_BitArray.h"
#include "Cmn_ChunkyPODVector.h"
#include "Cmn_Exception.h"
#include "Cmn_N10n.h"
#include "Cmn_PolyVector.h"
#include "Cmn_String.h"
#include "Cmn_XMLNode.h"
#include "Cmn_XMLNodeFwd.h"
#include "I18N_Utils.h"
#include "Mem2_MasterAllocator.h"
#include "Ndo_Manager.h"
#include "Ndo_Object.h"
#include "Ndo_Ptr.h"
#include "PSUtil_VMLock.h"
#include "Sys_RefCount.h"
#include "Sys_StdStreamHeader.h"
#include "Sys_TypedStream.h"
#include "Sys_Umid.h"
#include "Time_Typed.h"

// MIDI library
#include "Mdi_Parse.h"
#include "Mdie_ChaseTracker.h"
#include "Mdie_ChaseTrackerMap.h"
#include "Mdie_EventReceiver.h"
#include "Mdie_NoteInProgress.h"
#include "Mdie_SubStream.h"
#include "Mdie_SysexDataBase.h"
#include "Mdie_TimedEvent.h"
#include "Mdie_TrackState.h"
#include "Vela_Event.h"
#include "Vela_ExtendedEvent.h"
#include "Vela_ExtendedEventList.h"
#include "Vela_Init.h"
#include "Vela_N10n.h"
#include "Vela_Trace.h"
