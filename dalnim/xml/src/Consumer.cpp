#include <dalnim/dalbase.hpp>

#include <dalnim/xml/Consumer.hpp>

namespace com::kor::dal::nim::xml {

Consumer::Consumer() noexcept : documentId(0) {}

Consumer::~Consumer() noexcept(false) = default;

void Consumer::setDocumentId(int docId)
{
    documentId = docId;
}

}
