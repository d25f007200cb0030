/*
 * Device-model variables: the records and entries through which the host
 * declares, reads, changes and upgrades the station's variables.
 *
 * Records are byte-packed, little-endian, with NUL-terminated text fields.
 */
#ifndef OCPP_VARIABLES_H
#define OCPP_VARIABLES_H

#include <stdint.h>

#include "OcppExport.h"

OCPP_EXTERN_C_BEGIN

/* Result of setting or reading a variable. 6 means the host must decide. */
typedef enum {
    VARIABLESTATUS_ACCEPTED = 0,
    VARIABLESTATUS_REJECTED = 1,
    VARIABLESTATUS_UNKNOWNCOMPONENT = 2,
    VARIABLESTATUS_UNKNOWNVARIABLE = 3,
    VARIABLESTATUS_NOTSUPPORTEDATTRIBUTETYPE = 4,
    VARIABLESTATUS_REBOOTREQUIRED = 5,
    VARIABLESTATUS_HOSTDECIDE = 6
} VARIABLESTATUS;

typedef enum { VARIABLEMODE_READWRITE = 0, VARIABLEMODE_READONLY = 1, VARIABLEMODE_WRITEONLY = 2 } VARIABLEMODE;

typedef enum {
    VARIABLEATTRIBUTETYPE_ACTUAL = 0,
    VARIABLEATTRIBUTETYPE_TARGET = 1,
    VARIABLEATTRIBUTETYPE_MINSET = 2,
    VARIABLEATTRIBUTETYPE_MAXSET = 3
} VARIABLEATTRIBUTETYPE;

/* What an upgrade record does with its variable and characteristics. */
typedef enum {
    VARIABLEUPGRADE_ADD = 0,     /* add, or re-declare keeping the stored value */
    VARIABLEUPGRADE_UPDATE = 1,  /* same as ADD for the stored value; replaces the characteristics */
    VARIABLEUPGRADE_DELETE = 2   /* removes the variable and its characteristics */
} VARIABLEUPGRADEOPERATION;

#pragma pack(push, 1)

/* One variable attribute with its characteristics. */
typedef struct {
    uint8_t evseId;              /* 0 = station level */
    uint8_t connectorId;         /* 0 = EVSE level */
    int8_t status;               /* VARIABLESTATUS */
    int8_t mode;                 /* VARIABLEMODE */
    int8_t attributeType;        /* VARIABLEATTRIBUTETYPE */
    int8_t constant;             /* 1 = constant attribute */
    int8_t notPersistent;        /* 1 = forgotten on restart */
    char attributeValue[1001];
    char componentName[51];
    char variableName[51];
    char componentInstance[51];
    char variableInstance[51];
    /* Characteristics */
    char unit[17];
    int8_t dataType;             /* 0 string, 1 decimal, 2 integer, 3 dateTime, 4 boolean,
                                    5 OptionList, 6 SequenceList, 7 MemberList */
    int8_t limitFlag;            /* 0 none, 1 minimum, 2 maximum, 3 both */
    float minLimit;
    float maxLimit;
    char valuesList[1001];       /* comma-separated allowed values */
    int8_t supportsMonitoring;   /* 1 = the variable can be monitored */
} VariableDataItem;
OCPP_STATIC_ASSERT(sizeof(VariableDataItem) == 2241, "VariableDataItem must be 2241 bytes");

typedef struct {
    int32_t operation;           /* VARIABLEUPGRADEOPERATION */
    VariableDataItem variable;
} VariableUpgradeItem;
OCPP_STATIC_ASSERT(sizeof(VariableUpgradeItem) == 2245, "VariableUpgradeItem must be 2245 bytes");

#pragma pack(pop)

/*
 * Declares (fromResponse 0) or stores the accepted answers (fromResponse 1)
 * of `count` variables; only records with status Accepted are kept.
 * Returns 1 on success, 0 on failure.
 */
OCPP_API int OcppProtocol_SetVariableData(int count, const VariableDataItem* items, int fromResponse);

/* The host's answer to a SetVariables notification; also stores the accepted values. */
OCPP_API int OcppProtocol_SetVariables(const char* messageId, int count, const VariableDataItem* items);

/*
 * Reads the variables matching `query`. option 0: empty names and instances
 * and evse/connector 0 match anything; option 1: exact match.
 * On entry *count is the capacity of `out` in records (out may be NULL to
 * count only); on return it holds the number of matches found, of which at
 * most the capacity were written. Returns 1, or 0 on bad arguments.
 */
OCPP_API int OcppProtocol_GetVariableData(const VariableDataItem* query, int option, int* count, VariableDataItem* out);

/* Changes a variable's value whatever its mode. Returns VARIABLESTATUS (0, or 2 when unknown). */
OCPP_API int OcppProtocol_UpdateVariableValue(const VariableDataItem* variable, const char* value);

/* Adds, re-declares or removes variables with their characteristics. Returns 1, or 0 on bad arguments. */
OCPP_API int OcppProtocol_UpgrageVariableData(int count, const VariableUpgradeItem* items);

OCPP_EXTERN_C_END

#endif
