#ifndef DALNIM_XML_SRC_EVENTDISPATCHER_HPP
#define DALNIM_XML_SRC_EVENTDISPATCHER_HPP

#include "ElementPath.hpp"
#include "ParseControl.hpp"

namespace com::kor::dal::nim::xml {

/**
 * Calls the callbacks of a control block: the common callback if there is one, otherwise the separate ones.
 * Each function returns PDS_PARSE_OK or the code that ends the parse. Exceptions from callbacks propagate.
 */
class EventDispatcher
{
public:
    EventDispatcher(iParseCB& control, ElementPath& elements) : cb(control), path(elements) {}

    int start()
    {
        cb.apszAttrs[cb.nNumAttrs] = nullptr;
        cb.nInStartCB = 1;
        const int result =
            cb.cbCommon != nullptr
                ? common(PDS_PARSE_CB_TAG_START, nullptr, cb.nNumAttrs, cb.apszAttrs)
                : cb.cbTagStart(cb.pUserData, path.tag(), path.text(), cb.nNumAttrs, cb.apszAttrs);
        const bool pushedTwice = cb.nInStartCB == PUSHED_TWICE;
        cb.nInStartCB = 0;
        return pushedTwice ? PDS_PARSE_E_PUSH_CONTEXT : check(result);
    }

    int end()
    {
        return check(cb.cbCommon != nullptr ? common(PDS_PARSE_CB_TAG_END, nullptr, 0, nullptr)
                                            : cb.cbTagEnd(cb.pUserData, path.tag(), path.text()));
    }

    int text(char* data, std::size_t length)
    {
        cb.nDataLength = length;
        return check(cb.cbCommon != nullptr ? common(PDS_PARSE_CB_DATA, data, cb.nNumAttrs, cb.apszAttrs)
                                            : cb.cbData(cb.pUserData, 0, data, path.text()));
    }

    int cdata(char* data, std::size_t length)
    {
        cb.nDataLength = length;
        return check(cb.cbCommon != nullptr ? common(PDS_PARSE_CB_CDATA, data, 0, nullptr)
                                            : cb.cbData(cb.pUserData, 1, data, path.text()));
    }

    /** Reports an attribute named "NULL". Requires a common callback. */
    int nullAttribute()
    {
        char empty[] = "";
        // The callback gets 0 entries, but the array is terminated all the same. There is always room for
        // the null: reserveAttribute() keeps one entry free.
        cb.apszAttrs[cb.nNumAttrs] = nullptr;
        return check(common(PDS_PARSE_CB_DATA, empty, 0, cb.apszAttrs));
    }

private:
    int common(pds_parse_cb_type_e type, char* data, std::size_t entries, char** attributes)
    {
        return cb.cbCommon(&cb, type, cb.pUserData, cb.pUserDataAlt, path.tag(), path.text(), data, entries,
                           attributes);
    }

    int check(int result) const
    {
        return result != 0 ? PDS_PARSE_E_CALLBACK : cb.nPushErrCode;
    }

    iParseCB& cb;
    ElementPath& path;
};

}

#endif
