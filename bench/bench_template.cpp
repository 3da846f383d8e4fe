// The template parser against libxml2's bare SAX push parse of the same ~100 KB template with
// empty callbacks, and the rate at which font texts are decoded.
#include "dptemplate/CSSFont.h"
#include "dptemplate/SaxParser.h"
#include "dptemplate/Template.h"
#include "dptemplate/TemplateParser.h"

#include <benchmark/benchmark.h>
#include <libxml/parser.h>

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace {

// A template of about 100 KB in the shape real ones have: style sheets of styles with borders,
// and layouts of rows and columns of boxes, scrollers and content cells, one element a line.
const std::string& templateText() {
    static const std::string text = [] {
        std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<template>\n";
        for (int sheet = 0; sheet < 8; ++sheet) {
            out += "  <stylesheet id=\"sheet" + std::to_string(sheet) + "\"" +
                   (sheet ? " based-on=\"sheet0\"" : "") + ">\n";
            for (int style = 0; style < 25; ++style) {
                out += "    <style selector=\"class" + std::to_string(style) +
                       "\" font=\"bold 12pt/14pt Arial, 'Times New Roman'\" color=\"#20" +
                       std::to_string(10 + style) + "40\" background-color=\"#ffffff\">\n";
                out += "      <border color=\"#000000\" width=\"1\" style=\"solid\"/>\n";
                out += "    </style>\n";
            }
            out += "  </stylesheet>\n";
        }
        for (int layout = 0; out.size() < 100 * 1024; ++layout) {
            out += "  <layout id=\"layout" + std::to_string(layout) +
                   "\" stylesheet=\"sheet1\" width=\"176\" height=\"208\">\n";
            for (int row = 0; row < 10; ++row) {
                out += "    <row>\n";
                out += "      <image id=\"img" + std::to_string(row) +
                       "\" model-property=\"image\" alt-image=\"dc:noimage\" width=\"32\"/>\n";
                out += "      <text id=\"title" + std::to_string(row) +
                       "\" model-property=\"title\" class=\"class3\" col-span=\"2\"/>\n";
                out += "      <spacer width=\"4\"/>\n";
                out += "    </row>\n";
            }
            out += "    <col>\n      <box class=\"class1\">\n        <text "
                   "model-property=\"excerpt\"/>\n      </box>\n";
            out += "      <scroller height=\"40\">\n        <text model-property=\"desc\" "
                   "row-span=\"3\"/>\n      </scroller>\n    </col>\n";
            out += "  </layout>\n";
        }
        out += "</template>\n";
        return out;
    }();
    return text;
}

void BM_TemplateParser(benchmark::State& state) {
    const std::string& text = templateText();
    for (auto _ : state) {
        std::istringstream in(text);
        DPTemplate::Template target;
        DPTemplate::TemplateParser parser;
        int result = parser.parse(in, &target);
        if (result != 0) {
            state.SkipWithError("template refused");
            break;
        }
        benchmark::DoNotOptimize(target.getLayoutCount());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
    state.counters["bytes"] = static_cast<double>(text.size());
}
BENCHMARK(BM_TemplateParser)->Unit(benchmark::kMicrosecond);

// The SAX layer alone: every event reaches a virtual that does nothing. The difference to
// BM_TemplateParser is the cost of building the template.
void BM_SaxParserOnly(benchmark::State& state) {
    const std::string& text = templateText();
    DPTemplate::SaxParser parser(false);
    for (auto _ : state) {
        std::istringstream in(text);
        parser.parseStream(in);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_SaxParserOnly)->Unit(benchmark::kMicrosecond);

// libxml2 alone: the same SAX1 events, each going nowhere.
void emptyStartElement(void*, const xmlChar*, const xmlChar**) {}
void emptyEndElement(void*, const xmlChar*) {}
void emptyCharacters(void*, const xmlChar*, int) {}
void emptyDocument(void*) {}

xmlSAXHandler emptyHandler() {
    xmlSAXHandler handler;
    std::memset(&handler, 0, sizeof handler);
    handler.startDocument = emptyDocument;
    handler.endDocument = emptyDocument;
    handler.startElement = emptyStartElement;
    handler.endElement = emptyEndElement;
    handler.characters = emptyCharacters;
    return handler;
}

void BM_Libxml2BareSaxPush(benchmark::State& state) {
    const std::string& text = templateText();
    xmlSAXHandler handler = emptyHandler();
    for (auto _ : state) {
        xmlParserCtxtPtr context = xmlCreatePushParserCtxt(&handler, nullptr, nullptr, 0, "");
        xmlParseChunk(context, text.data(), static_cast<int>(text.size()), 0);
        xmlParseChunk(context, nullptr, 0, 1);
        benchmark::DoNotOptimize(context->wellFormed);
        xmlFreeParserCtxt(context);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_Libxml2BareSaxPush)->Unit(benchmark::kMicrosecond);

// The bare parse fed one line at a time, as the template parser feeds a stream that delivers
// its text line by line (a pipe): shows what line-wise feeding costs by itself. A stream that
// already holds the text, as here, is fed in blocks of 16 KB.
void BM_Libxml2BareSaxPushByLine(benchmark::State& state) {
    const std::string& text = templateText();
    xmlSAXHandler handler = emptyHandler();
    for (auto _ : state) {
        xmlParserCtxtPtr context = xmlCreatePushParserCtxt(&handler, nullptr, nullptr, 0, "");
        std::istringstream in(text);
        std::string line;
        while (std::getline(in, line)) {
            line += '\n';
            xmlParseChunk(context, line.data(), static_cast<int>(line.size()), 0);
        }
        xmlParseChunk(context, nullptr, 0, 1);
        benchmark::DoNotOptimize(context->wellFormed);
        xmlFreeParserCtxt(context);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_Libxml2BareSaxPushByLine)->Unit(benchmark::kMicrosecond);

void BM_CSSFontDecode(benchmark::State& state) {
    const std::vector<MString> texts = {
        "bold 12pt/14pt Arial, 'Times New Roman'",
        "8pt sans-serif",
        "italic small-caps 300 underline x-large \"Courier New\", monospace",
        "14px serif",
        "italic Arial", // unreadable: the fallback font
        "bold bold 9pt",
    };
    size_t next = 0;
    for (auto _ : state) {
        PtrRef<DPTemplate::CSSFont> font = DPTemplate::CSSFont::decode(texts[next]);
        benchmark::DoNotOptimize(font->isBold());
        next = (next + 1) % texts.size();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(BM_CSSFontDecode);

} // namespace
