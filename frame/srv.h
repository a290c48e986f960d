// The host's procedure interface, under its published names. The library only
// declares these; the host provides them (on Linux: host/, our stand-in).
#pragma once

#include <cstdint>

#if defined(_WIN32)
#define SRVAPI __cdecl
#else
#define SRVAPI
#endif

extern "C" {

typedef struct srv_proc SRV_PROC;  // opaque handle of one client call

typedef uint8_t BYTE;
typedef uint32_t ULONG;  // 32 bits on the host's platform
typedef int32_t BOOL;
typedef int32_t DBINT;
typedef uint8_t DBTINYINT;
typedef uint16_t DBUSMALLINT;
typedef char DBCHAR;

// Message kinds of srv_sendmsg.
enum : int { SRV_MSG_INFO = 1, SRV_MSG_ERROR = 2 };

// srv_senddone status bits.
enum : DBUSMALLINT { SRV_DONE_FINAL = 0x0000, SRV_DONE_MORE = 0x0001, SRV_DONE_COUNT = 0x0010 };

// srv_pfieldex field of the instance name.
enum : int { SRV_INSTANCENAME = 38 };

// Host type codes.
enum : int {
    SRVTEXT = 35, SRVVARBINARY = 37, SRVINTN = 38, SRVVARCHAR = 39, SRVBINARY = 45, SRVCHAR = 47,
    SRVINT1 = 48, SRVBIT = 50, SRVINT2 = 52, SRVDECIMAL = 55, SRVINT4 = 56, SRVDATETIME4 = 58,
    SRVFLT4 = 59, SRVDATETIME = 61, SRVFLT8 = 62, SRVNUMERIC = 63, SRVBITN = 104, SRVDECIMALN = 106,
    SRVNUMERICN = 108, SRVFLTN = 109, SRVDATETIMN = 111, SRVBIGVARBINARY = 165, SRVBIGVARCHAR = 167,
    SRVBIGBINARY = 173, SRVBIGCHAR = 175, SRVNVARCHAR = 231, SRVNCHAR = 239,
};

int SRVAPI srv_rpcparams(SRV_PROC* srvproc);
int SRVAPI srv_paramstatus(SRV_PROC* srvproc, int n);
int SRVAPI srv_paraminfo(SRV_PROC* srvproc, int n, BYTE* type, ULONG* maxLength, ULONG* actualLength,
                         BYTE* data, BOOL* isNull);
int SRVAPI srv_paramsetoutput(SRV_PROC* srvproc, int n, BYTE* data, ULONG length, BOOL isNull);
int SRVAPI srv_sendmsg(SRV_PROC* srvproc, int msgtype, DBINT msgnum, DBTINYINT msgClass, DBTINYINT state,
                       DBCHAR* rpcname, int rpcnamelen, DBUSMALLINT linenum, DBCHAR* message, int msglen);
int SRVAPI srv_senddone(SRV_PROC* srvproc, DBUSMALLINT status, DBUSMALLINT info, DBINT count);
int SRVAPI srv_describe(SRV_PROC* srvproc, int column, DBCHAR* name, int nameLength, DBINT destType,
                        DBINT destLength, DBINT srcType, DBINT srcLength, void* srcData);
int SRVAPI srv_setcoldata(SRV_PROC* srvproc, int column, void* data);
int SRVAPI srv_setcollen(SRV_PROC* srvproc, int column, int length);
int SRVAPI srv_sendrow(SRV_PROC* srvproc);
void* SRVAPI srv_pfieldex(SRV_PROC* srvproc, int field, int* length);

}  // extern "C"
