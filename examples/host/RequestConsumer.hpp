#ifndef NIMHOST_REQUESTCONSUMER_HPP
#define NIMHOST_REQUESTCONSUMER_HPP

#include "plugins/Service.hpp"

#include <dalnim/xml/Consumer.hpp>

#include <vector>

namespace nimhost {

/** A request or reload in a document. */
struct DocumentRequest
{
    enum Kind { CALL, RELOAD };

    Kind kind;
    com::kor::dal::nim::String plugin;
    ServiceCall call;
};

/**
 * Collects the requests of a document. Throws `std::invalid_argument` unless it has this form:
 *
 *     <requests>
 *       <request plugin="matcher" operation="lines"><expression>x$</expression><text>..</text></request>
 *       <reload plugin="matcher"/>
 *     </requests>
 */
class RequestConsumer : public com::kor::dal::nim::xml::Consumer
{
public:
    bool elementBegin(const com::kor::dal::nim::String& tag, const com::kor::dal::nim::String& fullTag,
                      const com::kor::dal::nim::xml::Attributes& attrs) override;
    bool elementEnd(const com::kor::dal::nim::String& tag,
                    const com::kor::dal::nim::String& fullTag) override;
    bool elementProcessData(const com::kor::dal::nim::String& tag, const com::kor::dal::nim::String& fullTag,
                            const com::kor::dal::nim::String& data, bool isCData) override;

    std::vector<DocumentRequest> requests;

protected:
    ~RequestConsumer() override = default;
};

typedef com::kor::dal::nim::mem::RcoRef<RequestConsumer> RequestConsumerRef;

}

#endif
