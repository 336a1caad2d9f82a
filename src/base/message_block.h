// Message blocks: an owning copy of a message envelope, and the conversions to and from the platform's envelope.
//
// Result codes: 0 success, 10 no reply, 11 empty reply, 13 a copy did not fit.
#pragma once

#include <string>

#include "kivo/os_msg.h"

/// An envelope with a payload of its own in accounted memory. `data` is null when there was no memory for it;
/// `dataLen` still says what was asked for. Not for use by several threads at once.
struct InspectMsgBlock {
    /// A copy of `msg` and its payload.
    explicit InspectMsgBlock(const TagMsgBlock& msg);

    /// A message of `len` payload bytes, copied from `src`; a null `src` gives `len` zero bytes.
    InspectMsgBlock(const unsigned int& id, const std::string& srcProc, const std::string& srcTask,
                    const std::string& dstProc, const std::string& dstTask, const unsigned int& len,
                    const unsigned char* src);

    ~InspectMsgBlock();
    InspectMsgBlock(const InspectMsgBlock&) = delete;
    InspectMsgBlock& operator=(const InspectMsgBlock&) = delete;

    /// Replaces everything by a copy of `msg`.
    void CreatMsgData(const TagMsgBlock& msg);

    /// Replaces the payload by `len` bytes from `src`. `dataLen` stays as it is: it is the caller's to keep true.
    void RefreshData(const unsigned int& len, const unsigned char* src);

    /// Frees the payload; harmless when there is none.
    void FreeMsgData();

    unsigned int msgId = 0;
    std::string srcProcName;
    std::string srcTaskName;
    std::string dstProcName;
    std::string dstTaskName;
    unsigned int dataLen = 0;
    unsigned char* data = nullptr;
};

/// Fills an outgoing envelope. Its payload is the block's, not a copy: the block must outlive the send.
/// 13: a name has more than 15 bytes; the envelope is then not to be used.
unsigned int CreateMsgBlock(const InspectMsgBlock& block, TagMsgBlock& msg);

/// Copies the payload of a synchronous reply to `out` and releases the reply, also on failure. 10: `resp` is
/// null; 11: it has no payload; 13: the payload is larger than `outSize` (`out` is then left as it was).
unsigned int TransMsgBlockAndFree(TagMsgBlock* resp, unsigned char* out, unsigned int outSize);
