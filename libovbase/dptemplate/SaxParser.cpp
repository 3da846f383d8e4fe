#include "dptemplate/SaxParser.h"

#include <libxml/parser.h>
#include <libxml/parserInternals.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <istream>

namespace DPTemplate {

namespace {

// The most bytes parseStream hands libxml2 at once.
const std::string::size_type MAX_STREAM_CHUNK = 16 * 1024;

// libxml2 hands texts as xmlChar; ours are narrow strings of the same bytes.
MString text(const xmlChar* value) {
    return value ? MString(reinterpret_cast<const char*>(value)) : MString();
}

// Without entity substitution libxml2 hands an ampersand of an attribute value on as the
// reference "&#38;" (every other character and predefined reference arrives decoded), so that the
// value could be parsed again. Our readers want the value itself.
const char AMPERSAND_REFERENCE[] = "&#38;";

// VALUE with each "&#38;" turned back into "&", scanning once from the left so that a reference
// written out as text ("&amp;#38;") stays text.
std::string decodeAmpersands(const char* value) {
    std::string decoded;
    const std::size_t length = sizeof AMPERSAND_REFERENCE - 1;
    for (const char* at = value; *at;) {
        const char* next = std::strstr(at, AMPERSAND_REFERENCE);
        if (!next) {
            decoded.append(at);
            break;
        }
        decoded.append(at, next).push_back('&');
        at = next + length;
    }
    return decoded;
}

SaxParser* parserOf(void* context) {
    return static_cast<SaxParser*>(context);
}

// Messages are formatted into 1024 bytes; longer ones are cut.
MString format(const char* fmt, va_list args) {
    char buffer[1024];
    std::vsnprintf(buffer, sizeof buffer, fmt, args);
    return MString(buffer);
}

// Points libxml2's generic error channel at PARSER for as long as it lives, and back at
// whatever it was before. libxml2 keeps that channel per thread.
class GenericErrorRedirect {
public:
    explicit GenericErrorRedirect(SaxParser* parser)
        : mpPrevious(xmlGenericError), mpPreviousContext(xmlGenericErrorContext) {
        xmlSetGenericErrorFunc(parser, SaxParserCallback::genericError);
    }
    ~GenericErrorRedirect() { xmlSetGenericErrorFunc(mpPreviousContext, mpPrevious); }

    GenericErrorRedirect(const GenericErrorRedirect&) = delete;
    GenericErrorRedirect& operator=(const GenericErrorRedirect&) = delete;

private:
    xmlGenericErrorFunc mpPrevious;
    void* mpPreviousContext;
};

} // namespace

// Every trampoline shields libxml2's C frames from exceptions: a failure is handed to
// handleException, which stops the parser; the parse call raises it again. Once a failure is
// pending no further event is delivered (libxml2's whole-document parse still ends the
// document after a stop).
#define OV_SAX_GUARDED(parser, call)                                                               \
    do {                                                                                           \
        if ((parser)->hasPendingException()) {                                                     \
            break;                                                                                 \
        }                                                                                          \
        try {                                                                                      \
            call;                                                                                  \
        } catch (...) {                                                                            \
            (parser)->handleException(std::current_exception());                                   \
        }                                                                                          \
    } while (0)

void SaxParserCallback::internalSubset(void* context, const xmlChar* name,
                                       const xmlChar* externalId, const xmlChar* systemId) {
    SaxParser* parser = parserOf(context);
    OV_SAX_GUARDED(parser, parser->onInternalSubset(text(name), text(externalId), text(systemId)));
}

void SaxParserCallback::entityDecl(void* context, const xmlChar* name, int type,
                                   const xmlChar* publicId, const xmlChar* systemId,
                                   xmlChar* content) {
    SaxParser* parser = parserOf(context);
    OV_SAX_GUARDED(parser, parser->onEntityDeclaration(text(name), type, text(publicId),
                                                       text(systemId), text(content)));
}

xmlEntity* SaxParserCallback::getEntity(void* context, const xmlChar* name) {
    SaxParser* parser = parserOf(context);
    xmlEntity* entity = nullptr;
    OV_SAX_GUARDED(parser, entity = parser->onGetEntity(text(name)));
    return entity;
}

void SaxParserCallback::startDocument(void* context) {
    SaxParser* parser = parserOf(context);
    OV_SAX_GUARDED(parser, parser->onStartDocument());
}

void SaxParserCallback::endDocument(void* context) {
    SaxParser* parser = parserOf(context);
    OV_SAX_GUARDED(parser, parser->onEndDocument());
}

void SaxParserCallback::startElement(void* context, const xmlChar* name,
                                     const xmlChar** attributes) {
    SaxParser* parser = parserOf(context);
    if (parser->hasPendingException()) {
        return;
    }
    try {
        AttributeList& list = parser->mStartTagAttributes;
        list.clear();
        const bool decode = parser->mpContext && !parser->mpContext->replaceEntities;
        if (attributes) {
            for (const xmlChar** pair = attributes; pair[0]; pair += 2) {
                const char* name = reinterpret_cast<const char*>(pair[0]);
                const char* value = pair[1] ? reinterpret_cast<const char*>(pair[1]) : "";
                if (decode && std::strchr(value, '&')) {
                    list.add(MString(name), MString(decodeAmpersands(value)));
                } else {
                    list.add(name, value);
                }
            }
        }
        parser->onStartElement(text(name), list);
    } catch (...) {
        parser->handleException(std::current_exception());
    }
}

void SaxParserCallback::endElement(void* context, const xmlChar* name) {
    SaxParser* parser = parserOf(context);
    OV_SAX_GUARDED(parser, parser->onEndElement(text(name)));
}

void SaxParserCallback::characters(void* context, const xmlChar* bytes, int length) {
    SaxParser* parser = parserOf(context);
    OV_SAX_GUARDED(parser, parser->onCharacters(MString(reinterpret_cast<const char*>(bytes),
                                                        static_cast<size_t>(length))));
}

void SaxParserCallback::comment(void* context, const xmlChar* value) {
    SaxParser* parser = parserOf(context);
    OV_SAX_GUARDED(parser, parser->onComment(text(value)));
}

void SaxParserCallback::cdataBlock(void* context, const xmlChar* bytes, int length) {
    SaxParser* parser = parserOf(context);
    OV_SAX_GUARDED(parser, parser->onCdataBlock(MString(reinterpret_cast<const char*>(bytes),
                                                        static_cast<size_t>(length))));
}

void SaxParserCallback::message(void* context, void (SaxParser::*event)(const MString&),
                                const char* fmt, va_list args) {
    SaxParser* parser = parserOf(context);
    MString text = format(fmt, args);
    OV_SAX_GUARDED(parser, (parser->*event)(text));
}

void SaxParserCallback::warning(void* context, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    message(context, &SaxParser::onWarning, fmt, args);
    va_end(args);
}

void SaxParserCallback::error(void* context, const char* fmt, ...) {
    // libxml2 reports fatal errors through this channel too; the record of the error it is
    // reporting, filled before the call, tells which kind this is.
    SaxParser* parser = parserOf(context);
    bool fatal = parser->mpContext && parser->mpContext->lastError.level == XML_ERR_FATAL;
    va_list args;
    va_start(args, fmt);
    message(context, fatal ? &SaxParser::onFatalError : &SaxParser::onError, fmt, args);
    va_end(args);
}

void SaxParserCallback::fatalError(void* context, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    message(context, &SaxParser::onFatalError, fmt, args);
    va_end(args);
}

void SaxParserCallback::validityError(void* context, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    message(context, &SaxParser::onValidityError, fmt, args);
    va_end(args);
}

void SaxParserCallback::validityWarning(void* context, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    message(context, &SaxParser::onValidityWarning, fmt, args);
    va_end(args);
}

void SaxParserCallback::genericError(void* context, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    message(context, &SaxParser::onError, fmt, args);
    va_end(args);
}

#undef OV_SAX_GUARDED

SaxParser::SaxParser(bool useEntityHook)
    : mpContext(nullptr), mValidate(false), mSubstituteEntities(false),
      mpSaxHandler(new xmlSAXHandler) {
    // Zeroed, and left a SAX1 record, so that libxml2 reports start tags through startElement
    // with the plain array of attribute names and values.
    std::memset(mpSaxHandler, 0, sizeof(xmlSAXHandler));
    mpSaxHandler->internalSubset = SaxParserCallback::internalSubset;
    mpSaxHandler->entityDecl = SaxParserCallback::entityDecl;
    mpSaxHandler->startDocument = SaxParserCallback::startDocument;
    mpSaxHandler->endDocument = SaxParserCallback::endDocument;
    mpSaxHandler->startElement = SaxParserCallback::startElement;
    mpSaxHandler->endElement = SaxParserCallback::endElement;
    mpSaxHandler->characters = SaxParserCallback::characters;
    mpSaxHandler->comment = SaxParserCallback::comment;
    mpSaxHandler->warning = SaxParserCallback::warning;
    mpSaxHandler->error = SaxParserCallback::error;
    mpSaxHandler->fatalError = SaxParserCallback::fatalError;
    mpSaxHandler->cdataBlock = SaxParserCallback::cdataBlock;
    if (useEntityHook) {
        mpSaxHandler->getEntity = SaxParserCallback::getEntity;
    }
}

SaxParser::~SaxParser() {
    if (mpContext) {
        SaxParser::releaseUnderlying();
    }
    delete mpSaxHandler;
}

void SaxParser::setValidate(bool validate) {
    mValidate = validate;
}
bool SaxParser::getValidate() const {
    return mValidate;
}
void SaxParser::setSubstituteEntities(bool substitute) {
    mSubstituteEntities = substitute;
}
bool SaxParser::getSubstituteEntities() const {
    return mSubstituteEntities;
}

void SaxParser::onStartElement(const MString&, const AttributeList&) {}
void SaxParser::onEndElement(const MString&) {}
void SaxParser::onCharacters(const MString&) {}
void SaxParser::onComment(const MString&) {}
void SaxParser::onWarning(const MString&) {}
void SaxParser::onError(const MString&) {}
void SaxParser::onFatalError(const MString&) {}
void SaxParser::onCdataBlock(const MString&) {}
void SaxParser::onInternalSubset(const MString&, const MString&, const MString&) {}
xmlEntity* SaxParser::onGetEntity(const MString&) {
    return nullptr;
}
void SaxParser::onEntityDeclaration(const MString&, int, const MString&, const MString&,
                                    const MString&) {}

void SaxParser::onValidityError(const MString& message) {
    mValidityErrors += message;
}
void SaxParser::onValidityWarning(const MString& message) {
    mValidityWarnings += message;
}

void SaxParser::handleException(std::exception_ptr failure) {
    if (!mPendingException) {
        mPendingException = failure;
    }
    stopParsing();
}

void SaxParser::stopParsing() {
    if (mpContext) {
        xmlStopParser(mpContext);
    }
}

void SaxParser::checkForException() {
    if (mPendingException) {
        std::exception_ptr failure = mPendingException;
        mPendingException = nullptr;
        std::rethrow_exception(failure);
    }
}

void SaxParser::checkForValidityMessages() {
    if (mValidate && !mValidityErrors.empty()) {
        throw SaxParserException(mValidityErrors);
    }
}

void SaxParser::initializeContext() {
    mpContext->replaceEntities = mSubstituteEntities ? 1 : 0;
    mpContext->validate = mValidate ? 1 : 0;
    mpContext->vctxt.error = SaxParserCallback::validityError;
    mpContext->vctxt.warning = SaxParserCallback::validityWarning;
    mpContext->vctxt.userData = this;
    mValidityErrors.clear();
    mValidityWarnings.clear();
}

void SaxParser::releaseUnderlying() {
    if (!mpContext) {
        return;
    }
    if (mpContext->myDoc) {
        xmlFreeDoc(mpContext->myDoc);
        mpContext->myDoc = nullptr;
    }
    xmlFreeParserCtxt(mpContext);
    mpContext = nullptr;
}

void SaxParser::adoptContext(xmlParserCtxt* context) {
    // The context owns a copy of a handler record; ours replaces its contents.
    std::memcpy(context->sax, mpSaxHandler, sizeof(xmlSAXHandler));
    context->userData = this;
    mpContext = context;
    mPendingException = nullptr;
    initializeContext();
}

void SaxParser::parse() {
    if (mpContext) {
        xmlParseDocument(mpContext);
    }
}

void SaxParser::runWholeDocument() {
    try {
        parse();
    } catch (...) {
        releaseUnderlying();
        throw;
    }
    releaseUnderlying();
    checkForException();
    checkForValidityMessages();
}

void SaxParser::parseFile(const MString& fileName) {
    if (mpContext) {
        return;
    }
    GenericErrorRedirect redirect(this);
    // libxml2 would report an unreadable file on standard error; the engine writes nothing.
    if (!std::ifstream(fileName.c_str(), std::ios::binary)) {
        throw SaxParserException("cannot open " + fileName);
    }
    xmlParserCtxt* context = xmlCreateFileParserCtxt(fileName.c_str());
    if (!context) {
        throw SaxParserException("cannot create a parser context for " + fileName);
    }
    adoptContext(context);
    runWholeDocument();
}

void SaxParser::parseMemory(const MString& text) {
    parseMemoryRaw(reinterpret_cast<const unsigned char*>(text.data()),
                   static_cast<unsigned int>(text.size()));
}

void SaxParser::parseMemoryRaw(const unsigned char* bytes, unsigned int length) {
    if (mpContext) {
        return;
    }
    GenericErrorRedirect redirect(this);
    xmlParserCtxt* context =
        xmlCreateMemoryParserCtxt(reinterpret_cast<const char*>(bytes), static_cast<int>(length));
    if (!context) {
        throw SaxParserException("cannot create a parser context for a memory buffer");
    }
    adoptContext(context);
    runWholeDocument();
}

void SaxParser::parseStream(std::istream& in) {
    if (mpContext) {
        return;
    }
    GenericErrorRedirect redirect(this);
    xmlParserCtxt* context = xmlCreatePushParserCtxt(mpSaxHandler, this, nullptr, 0, "");
    if (!context) {
        throw SaxParserException("cannot create a push parser context");
    }
    adoptContext(context);
    try {
        // Each step waits for the stream to hold something (one refill of its buffer: what a
        // pipe has ready, a block of a file) and hands libxml2 what it holds, at most a block,
        // however that cuts lines and tags: the events do not depend on the cut, and no read
        // waits for more than the stream can give at once. Once the document has failed, or a
        // callback stopped the parser, nothing more is read: libxml2 would ignore it, and an
        // endless or stalled input would never let the parse return. The text ends in a
        // newline when it reaches libxml2, as it would read line by line.
        std::string chunk(MAX_STREAM_CHUNK, '\0');
        char last = '\n';
        while (!inputRefused()) {
            std::streamsize count = 0;
            if (in.peek() != std::char_traits<char>::eof()) {
                count = in.readsome(&chunk[0], static_cast<std::streamsize>(chunk.size()));
                if (count <= 0 && in.get(chunk[0])) {
                    // A stream buffer that reports nothing ready still gives one at a time.
                    count = 1;
                }
            }
            if (count <= 0) {
                if (last != '\n') {
                    xmlParseChunk(mpContext, "\n", 1, 0);
                }
                if (!inputRefused()) {
                    xmlParseChunk(mpContext, nullptr, 0, 1);
                }
                break;
            }
            xmlParseChunk(mpContext, chunk.data(), static_cast<int>(count), 0);
            last = chunk[static_cast<std::string::size_type>(count) - 1];
        }
    } catch (...) {
        // A failing stream must not leave the context behind.
        releaseUnderlying();
        throw;
    }
    releaseUnderlying();
    checkForException();
}

void SaxParser::parseChunk(const MString& chunk) {
    GenericErrorRedirect redirect(this);
    if (!mpContext) {
        xmlParserCtxt* context = xmlCreatePushParserCtxt(mpSaxHandler, this, nullptr, 0, "");
        if (!context) {
            throw SaxParserException("cannot create a push parser context");
        }
        adoptContext(context);
    }
    xmlParseChunk(mpContext, chunk.data(), static_cast<int>(chunk.size()), 0);
    if (mPendingException) {
        releaseUnderlying();
        checkForException();
    }
}

void SaxParser::finishChunkParsing() {
    if (!mpContext) {
        return;
    }
    GenericErrorRedirect redirect(this);
    if (!mPendingException) {
        xmlParseChunk(mpContext, nullptr, 0, 1);
    }
    releaseUnderlying();
    checkForException();
}

bool SaxParser::inputRefused() const {
    // libxml2 disables the SAX events for good at a fatal error and when it is stopped.
    return mPendingException || (mpContext && mpContext->disableSAX);
}

int SaxParser::getLineNumber() const {
    if (!mpContext || !mpContext->input) {
        return 0;
    }
    return mpContext->input->line;
}

} // namespace DPTemplate
