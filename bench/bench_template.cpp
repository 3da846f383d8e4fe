// The template parser against libxml2's bare SAX push parse of the same ~100 KB template with
// empty callbacks, and the rate at which font texts are decoded. BM_TemplateAgainstLibxml2
// gives the figures to compare: both parses in one loop and their ratio.
#include "dptemplate/CSSFont.h"
#include "dptemplate/SaxParser.h"
#include "dptemplate/Template.h"
#include "dptemplate/TemplateParser.h"

#include <benchmark/benchmark.h>
#include <libxml/parser.h>

#include <cstring>
#include <ctime>
#include <memory>
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

// This thread's CPU time in microseconds: other processes on the machine add to neither side.
double threadMicros() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

// The peer and ours side by side: each iteration parses the template with libxml2 alone (a
// push context, the text, the context freed), with the SAX layer alone, and with the template
// parser, timing each on this thread's CPU clock; then frees the template, timed apart. The
// stream each of ours reads is made before its clock starts, as the peer's text is in memory
// already. Counters, per parse in microseconds: libxml2_us, sax_us, template_us, free_us; and
// the ratios sax_x, template_x (the parse the user waits for) and with_free_x (the template's
// parse and its freeing together) to libxml2_us.
void BM_TemplateAgainstLibxml2(benchmark::State& state) {
    const std::string& text = templateText();
    xmlSAXHandler handler = emptyHandler();
    DPTemplate::SaxParser saxLayer(false);
    double peer = 0, sax = 0, parse = 0, freeing = 0;
    for (auto _ : state) {
        double start = threadMicros();
        xmlParserCtxtPtr context = xmlCreatePushParserCtxt(&handler, nullptr, nullptr, 0, "");
        xmlParseChunk(context, text.data(), static_cast<int>(text.size()), 0);
        xmlParseChunk(context, nullptr, 0, 1);
        benchmark::DoNotOptimize(context->wellFormed);
        xmlFreeParserCtxt(context);
        peer += threadMicros() - start;

        std::istringstream saxInput(text);
        start = threadMicros();
        saxLayer.parseStream(saxInput);
        sax += threadMicros() - start;

        std::istringstream templateInput(text);
        std::unique_ptr<DPTemplate::Template> target(new DPTemplate::Template);
        start = threadMicros();
        {
            DPTemplate::TemplateParser parser;
            if (parser.parse(templateInput, target.get()) != 0) {
                state.SkipWithError("template refused");
                break;
            }
        }
        parse += threadMicros() - start;
        benchmark::DoNotOptimize(target->getLayoutCount());
        start = threadMicros();
        target.reset();
        freeing += threadMicros() - start;
    }
    double n = static_cast<double>(state.iterations());
    if (n == 0 || peer == 0)
        return;
    state.counters["libxml2_us"] = peer / n;
    state.counters["sax_us"] = sax / n;
    state.counters["template_us"] = parse / n;
    state.counters["free_us"] = freeing / n;
    state.counters["sax_x"] = sax / peer;
    state.counters["template_x"] = parse / peer;
    state.counters["with_free_x"] = (parse + freeing) / peer;
}
BENCHMARK(BM_TemplateAgainstLibxml2)->Unit(benchmark::kMicrosecond)->MinTime(2.0);

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
