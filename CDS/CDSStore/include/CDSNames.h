#pragma once

#include "CDSExport.h"

#include <string>

/// Well-known names of properties and logs. Any other name is as good. They are set when the library is loaded and
/// live until it is unloaded.

CDS_API extern const std::string CDSPROP_CALLERID;
CDS_API extern const std::string CDSPROP_CALLERID_NAME;
CDS_API extern const std::string CDSPROP_CALLERID_FLAG;
CDS_API extern const std::string CDSPROP_CALLEDID;
CDS_API extern const std::string CDSPROP_CALLEDID_NAME;
CDS_API extern const std::string CDSPROP_CALLEDID_FLAG;
CDS_API extern const std::string CDSPROP_CALL_DATA;
CDS_API extern const std::string CDSPROP_RELATED_CALLID;
CDS_API extern const std::string CDSPROP_COMMENT;
CDS_API extern const std::string CDSPROP_USER_USERINFO;
CDS_API extern const std::string CDSPROP_CALL_RELATION;
CDS_API extern const std::string CDSPROP_L_CONNECTEDID;
CDS_API extern const std::string CDSPROP_L_CONNECTEDID_NAME;
CDS_API extern const std::string CDSPROP_L_CONNECTEDID_FLAG;
CDS_API extern const std::string CDSPROP_FAKE_CALLEDID;
CDS_API extern const std::string CDSPROP_L_ORIGIN;
CDS_API extern const std::string CDSPROP_CALL_ORIGINATOR_IP;

CDS_API extern const std::string CDSLOG_TUPLE_ROUTING_ENTRY;
CDS_API extern const std::string CDSLOG_CONNECT_ENTRY;
CDS_API extern const std::string CDSLOG_DISCONNECT_ENTRY;
CDS_API extern const std::string CDSLOG_MEDIA_STREAM;
CDS_API extern const std::string CDSLOG_QUEUE_CALL;
CDS_API extern const std::string CDSLOG_QUEUE_STEP;
CDS_API extern const std::string CDSLOG_QUEUE_AGENT_WRAPUP;
CDS_API extern const std::string CDSLOG_TUPLE_CONF_PARTY;
CDS_API extern const std::string CDSLOG_MEDIASTREAM_ENTRY;
CDS_API extern const std::string CDSLOG_TUPLE_LINEINFO;  ///< "LINEINFO": the value lacks the TUPLE_ of its name
CDS_API extern const std::string CDSLOG_LEGACYLOG_ENTRY; ///< the prefix is part of this value
CDS_API extern const std::string CDSLOG_CDRDATA_ENTRY;   ///< and of this one
