// An event-driven XML reader over libxml2's SAX interface. Subclasses override the on...()
// events they care about. libxml2 calls back into C++ through the static trampolines of
// SaxParserCallback; a failure raised inside a callback cannot cross libxml2's C frames, so it
// is stored, libxml2 is stopped, and the failure is raised again once the parse call returns.
// This is the only place of the library where failures travel as exceptions.
#ifndef OVBASE_DPTEMPLATE_SAXPARSER_H
#define OVBASE_DPTEMPLATE_SAXPARSER_H

#include "dptemplate/AttributeList.h"
#include "types/MString.h"

#include <cstdarg>
#include <exception>
#include <iosfwd>
#include <stdexcept>
#include <string>

// libxml2 stays private to the library; its records are only named here.
struct _xmlParserCtxt;
struct _xmlSAXHandler;
struct _xmlEntity;

namespace DPTemplate {

// Raised by the SAX layer itself: a context that cannot be made, a file that cannot be read.
class SaxParserException : public std::runtime_error {
public:
    explicit SaxParserException(const std::string& what) : std::runtime_error(what) {}
};

class SaxParser;

// The C entry points that libxml2 calls; each receives the SaxParser as its user data and
// forwards to the matching virtual event, catching whatever it raises.
class SaxParserCallback {
public:
    static void internalSubset(void* context, const unsigned char* name,
                               const unsigned char* externalId, const unsigned char* systemId);
    static void entityDecl(void* context, const unsigned char* name, int type,
                           const unsigned char* publicId, const unsigned char* systemId,
                           unsigned char* content);
    static _xmlEntity* getEntity(void* context, const unsigned char* name);
    static void startDocument(void* context);
    static void endDocument(void* context);
    static void startElement(void* context, const unsigned char* name,
                             const unsigned char** attributes);
    static void endElement(void* context, const unsigned char* name);
    static void characters(void* context, const unsigned char* bytes, int length);
    static void comment(void* context, const unsigned char* text);
    static void warning(void* context, const char* format, ...);
    static void error(void* context, const char* format, ...);
    static void fatalError(void* context, const char* format, ...);
    static void cdataBlock(void* context, const unsigned char* bytes, int length);
    static void validityError(void* context, const char* format, ...);
    static void validityWarning(void* context, const char* format, ...);
    // libxml2's messages that carry no parser context (encoding conversion, for one) go to its
    // generic error channel, which would print them; during a parse they come here instead
    // and reach onError.
    static void genericError(void* context, const char* format, ...);

private:
    // The printf-style callbacks: formats the message into 1024 bytes and hands it to EVENT.
    static void message(void* context, void (SaxParser::*event)(const MString&), const char* format,
                        va_list args);
};

class SaxParser {
public:
    // The entity look-up hook is installed only when USEENTITYHOOK is true.
    explicit SaxParser(bool useEntityHook);
    virtual ~SaxParser();

    SaxParser(const SaxParser&) = delete;
    SaxParser& operator=(const SaxParser&) = delete;

    virtual void setValidate(bool validate);
    virtual bool getValidate() const;
    virtual void setSubstituteEntities(bool substitute);
    virtual bool getSubstituteEntities() const;

    // Each parse runs to the end of its input, or to the first fatal error, and raises
    // afterwards what a callback raised. parseStream reads no further once the document has
    // failed or a callback failed, so an endless or stalled input after that point does not
    // keep it waiting; before that it waits for the stream as long as the stream waits.
    virtual void parseFile(const MString& fileName);
    virtual void parseMemory(const MString& text);
    virtual void parseStream(std::istream& in);
    // Incremental parsing: the first chunk opens a push context, finishChunkParsing() ends it.
    virtual void parseChunk(const MString& chunk);
    virtual void finishChunkParsing();

    void parseMemoryRaw(const unsigned char* bytes, unsigned int length);

    // The line libxml2 is reading, 0 when no parse is under way. Meant for error callbacks.
    int getLineNumber() const;

    const std::string& getValidityErrors() const { return mValidityErrors; }
    const std::string& getValidityWarnings() const { return mValidityWarnings; }

protected:
    // Events; all of them do nothing here. Attribute values arrive with their character and
    // entity references decoded ("a&amp;b" is "a&b"); with entity substitution off, a reference
    // to an entity other than the predefined ones stays as written. onError gets libxml2's
    // errors, onFatalError those after which the document is not well formed and no further
    // event comes.
    virtual void onStartDocument() {}
    virtual void onEndDocument() {}
    virtual void onStartElement(const MString& name, const AttributeList& attributes);
    virtual void onEndElement(const MString& name);
    virtual void onCharacters(const MString& text);
    virtual void onComment(const MString& text);
    virtual void onWarning(const MString& message);
    virtual void onError(const MString& message);
    virtual void onFatalError(const MString& message);
    virtual void onCdataBlock(const MString& text);
    virtual void onInternalSubset(const MString& name, const MString& externalId,
                                  const MString& systemId);
    virtual _xmlEntity* onGetEntity(const MString& name);
    virtual void onEntityDeclaration(const MString& name, int type, const MString& publicId,
                                     const MString& systemId, const MString& content);

    // Frees what libxml2 built for the parse under way and forgets the context.
    virtual void releaseUnderlying();
    // Applies the switches to a fresh context before its first byte.
    virtual void initializeContext();
    virtual void onValidityError(const MString& message);
    virtual void onValidityWarning(const MString& message);
    // Records the failure in flight (the first one wins) and stops libxml2.
    virtual void handleException(std::exception_ptr failure);
    // Raises again the failure that a callback recorded, if any.
    virtual void checkForException();
    // With validation on, raises the gathered validity errors as a SaxParserException.
    virtual void checkForValidityMessages();
    // Runs libxml2's whole-document parse on the current file or memory context.
    virtual void parse();

    bool hasPendingException() const { return static_cast<bool>(mPendingException); }
    // Ends the parse under way from inside an event: libxml2 delivers no further event and
    // the input is read no further. The parse call returns normally.
    void stopParsing();

    // The list handed to onStartElement is this parser's own and is refilled at the next start
    // tag, so a subclass may take its texts over: the same list, writable, when ATTRIBUTES is
    // that list; null for any other.
    AttributeList* reusableAttributes(const AttributeList& attributes) {
        return &attributes == &mStartTagAttributes ? &mStartTagAttributes : nullptr;
    }

    _xmlParserCtxt* mpContext;

private:
    friend class SaxParserCallback;

    // Installs our handler and user data in a context libxml2 has just made.
    void adoptContext(_xmlParserCtxt* context);
    // Parses the context already adopted, then releases it and re-raises.
    void runWholeDocument();
    // True once libxml2 takes no more input for the parse under way: a fatal error, a stop.
    bool inputRefused() const;

    // Reused for every start tag, so that a tag costs no list of its own.
    AttributeList mStartTagAttributes;
    std::exception_ptr mPendingException;
    std::string mValidityErrors;
    std::string mValidityWarnings;
    bool mValidate;
    bool mSubstituteEntities;
    _xmlSAXHandler* mpSaxHandler;
};

} // namespace DPTemplate

#endif
