#include "hvxvisa/VisaStatusText.h"

namespace hvxvisa {

const char* VisaStatusText(ViStatus status, bool& known) {
    known = true;
    switch (status) {
    case kViSuccess: return "VI_SUCCESS: Operation completed successfully.";
    case kViSuccessTermChar: return "VI_SUCCESS_TERM_CHAR: The specified termination character was read.";
    case kViSuccessMaxCnt: return "VI_SUCCESS_MAX_CNT: The number of bytes read is equal to the input count.";
    case kViWarnNullObject: return "VI_WARN_NULL_OBJECT: The specified object reference is uninitialized.";
    case kViWarnUnknownStatus: return "VI_WARN_UNKNOWN_STATUS: The status code passed to the operation could not be interpreted.";
    case kViErrorSystemError: return "VI_ERROR_SYSTEM_ERROR: Unknown system error (miscellaneous error).";
    case kViErrorInvObject: return "VI_ERROR_INV_OBJECT: The given session or object reference is invalid.";
    case kViErrorInvExpr: return "VI_ERROR_INV_EXPR: Invalid expression specified for search.";
    case kViErrorRsrcNfound: return "VI_ERROR_RSRC_NFOUND: Insufficient location information or the requested device or resource is not present in the system.";
    case kViErrorInvRsrcName: return "VI_ERROR_INV_RSRC_NAME: Invalid resource reference specified. Parsing error.";
    case kViErrorInvAccMode: return "VI_ERROR_INV_ACC_MODE: Invalid access mode.";
    case kViErrorTmo: return "VI_ERROR_TMO: Timeout expired before operation completed.";
    case kViErrorNsupAttr: return "VI_ERROR_NSUP_ATTR: The specified attribute is not defined or supported by the referenced session, event, or find list.";
    case kViErrorNsupAttrState: return "VI_ERROR_NSUP_ATTR_STATE: The specified state of the attribute is not valid, or is not supported as defined by the session, event, or find list.";
    case kViErrorAttrReadonly: return "VI_ERROR_ATTR_READONLY: The specified attribute is Read Only.";
    case kViErrorAlloc: return "VI_ERROR_ALLOC: Insufficient system resources to perform necessary memory allocation.";
    case kViErrorInvMask: return "VI_ERROR_INV_MASK: Invalid buffer mask specified.";
    case kViErrorIo: return "VI_ERROR_IO: Could not perform operation because of I/O error.";
    case kViErrorNsupOper: return "VI_ERROR_NSUP_OPER: The given session or object reference does not support this operation.";
    case kViErrorUserBuf: return "VI_ERROR_USER_BUF: A specified user buffer is not valid or cannot be accessed for the required size.";
    case kViErrorConnLost: return "VI_ERROR_CONN_LOST: The connection for the given session has been lost.";
    default: break;
    }
    known = false;
    return nullptr;
}

} // namespace hvxvisa
