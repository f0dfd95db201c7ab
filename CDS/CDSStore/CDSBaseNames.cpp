// The well-known names.

#include "CDSNames.h"

const std::string CDSPROP_CALLERID = "CALLERID";
const std::string CDSPROP_CALLERID_NAME = "CALLERID_NAME";
const std::string CDSPROP_CALLERID_FLAG = "CALLERID_FLAG";
const std::string CDSPROP_CALLEDID = "CALLEDID";
const std::string CDSPROP_CALLEDID_NAME = "CALLEDID_NAME";
const std::string CDSPROP_CALLEDID_FLAG = "CALLEDID_FLAG";
const std::string CDSPROP_CALL_DATA = "CALL_DATA";
const std::string CDSPROP_RELATED_CALLID = "RELATED_CALLID";
const std::string CDSPROP_COMMENT = "COMMENT";
const std::string CDSPROP_USER_USERINFO = "USER_USERINFO";
const std::string CDSPROP_CALL_RELATION = "CALL_RELATION";
const std::string CDSPROP_L_CONNECTEDID = "L_CONNECTEDID";
const std::string CDSPROP_L_CONNECTEDID_NAME = "L_CONNECTEDID_NAME";
const std::string CDSPROP_L_CONNECTEDID_FLAG = "L_CONNECTEDID_FLAG";
const std::string CDSPROP_FAKE_CALLEDID = "FAKE_CALLEDID";
const std::string CDSPROP_L_ORIGIN = "L_ORIGIN";
const std::string CDSPROP_CALL_ORIGINATOR_IP = "CALL_ORIGINATOR_IP";

const std::string CDSLOG_TUPLE_ROUTING_ENTRY = "TUPLE_ROUTING_ENTRY";
const std::string CDSLOG_CONNECT_ENTRY = "CONNECT_ENTRY";
const std::string CDSLOG_DISCONNECT_ENTRY = "DISCONNECT_ENTRY";
const std::string CDSLOG_MEDIA_STREAM = "MEDIA_STREAM";
const std::string CDSLOG_QUEUE_CALL = "QUEUE_CALL";
const std::string CDSLOG_QUEUE_STEP = "QUEUE_STEP";
const std::string CDSLOG_QUEUE_AGENT_WRAPUP = "QUEUE_AGENT_WRAPUP";
const std::string CDSLOG_TUPLE_CONF_PARTY = "TUPLE_CONF_PARTY";
const std::string CDSLOG_MEDIASTREAM_ENTRY = "MEDIASTREAM_ENTRY";
// These three values are irregular and exactly so on every server.
const std::string CDSLOG_TUPLE_LINEINFO = "LINEINFO";
const std::string CDSLOG_LEGACYLOG_ENTRY = "CDSLOG_LEGACYLOG_ENTRY";
const std::string CDSLOG_CDRDATA_ENTRY = "CDSLOG_CDRDATA_ENTRY";
