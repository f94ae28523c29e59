#include "frontend/word_tables.h"

namespace murmela {
namespace {

bool isOneOf(std::u32string_view symbol, std::u32string_view scalars) {
    return symbol.size() == 1 && scalars.find(symbol.front()) != std::u32string_view::npos;
}

}  // namespace

bool isQuoteOrMarkup(std::u32string_view symbol) {
    return isOneOf(symbol, U"\"'\u201c\u201d\u2018\u2019()[]*_`#");
}

bool isPassThroughPunctuation(std::u32string_view symbol) {
    return isOneOf(symbol, U",.!?;:\u2014\u2026");
}

// Function-local statics: built once, on first use, thread-safely.

const WordSet& abbreviations() {
    static const WordSet table = {U"dr",  U"mr",  U"mrs", U"ms", U"st", U"vs", U"etc",
                                  U"e.g", U"i.e", U"no",  U"jr", U"sr", U"mt"};
    return table;
}

const WordSet& dottedAbbreviations() {
    static const WordSet table = {U"dr.", U"mr.", U"mrs.", U"ms.",  U"st.",  U"jr.",
                                  U"sr.", U"vs.", U"etc.", U"e.g.", U"i.e.", U"prof.",
                                  U"mt.", U"no.", U"a.m.", U"p.m.", U"u.s.", U"approx."};
    return table;
}

const WordMap& nameRespellings() {
    static const WordMap table = {
        {U"tchaikovsky", U"chykoffsky"}, {U"chopin", U"showpan"}, {U"goethe", U"gerta"}};
    return table;
}

const WordMap& pronounRespellings() {
    static const WordMap table = {
        {U"i", U"eye"}, {U"i'm", U"eim"}, {U"i'll", U"isle"}, {U"i've", U"ive"}, {U"i'd", U"eyed"}};
    return table;
}

const WordSet& perfectTenseContext() {
    static const WordSet table = {U"already", U"just",  U"was",    U"were",    U"been",
                                  U"i've",    U"we've", U"you've", U"they've", U"had",
                                  U"has",     U"have",  U"never",  U"once",    U"recently"};
    return table;
}

const WordSet& pastTimeContext() {
    static const WordSet table = {U"yesterday", U"last", U"earlier", U"ago", U"already", U"before"};
    return table;
}

const WordSet& metalContext() {
    static const WordSet table = {U"pipe",    U"pipes",   U"paint",   U"poisoning", U"pencil",
                                  U"pencils", U"weight",  U"weights", U"shot",      U"bullet",
                                  U"bullets", U"balloon", U"acid",    U"crystal",   U"apron",
                                  U"sinker",  U"solder"};
    return table;
}

const WordSet& verbFollowsContext() {
    static const WordSet table = {U"to",   U"will",   U"would",  U"can",   U"could",
                                  U"must", U"should", U"please", U"i",     U"we",
                                  U"you",  U"they",   U"and",    U"don't", U"didn't"};
    return table;
}

const WordSet& determinerAndParticleContext() {
    static const WordSet table = {U"the", U"it",  U"up",  U"down", U"back", U"your", U"my",
                                  U"our", U"his", U"her", U"them", U"this", U"that", U"a"};
    return table;
}

const WordSet& subjectContext() {
    static const WordSet table = {U"he",     U"she",       U"it",      U"who",    U"that",
                                  U"which",  U"everyone",  U"someone", U"nobody", U"one",
                                  U"anyone", U"everybody", U"somebody"};
    return table;
}

const WordSet& possessiveAndQuantifierContext() {
    static const WordSet table = {U"our",   U"their", U"my",   U"your", U"his",   U"her",
                                  U"its",   U"the",   U"many", U"all",  U"these", U"those",
                                  U"whose", U"two",   U"nine", U"save", U"both"};
    return table;
}

const WordSet& timePrepositionContext() {
    static const WordSet table = {U"in",     U"since",  U"by",     U"of",     U"from",   U"until",
                                  U"till",   U"year",   U"circa",  U"around", U"before", U"after",
                                  U"during", U"summer", U"winter", U"spring", U"fall",   U"autumn"};
    return table;
}

const WordSet& auxiliaries() {
    static const WordSet table = {
        U"am",    U"are",      U"is",     U"was",      U"were",      U"do",
        U"does",  U"did",      U"have",   U"has",      U"had",       U"can",
        U"could", U"will",     U"would",  U"shall",    U"should",    U"may",
        U"might", U"must",     U"aren't", U"isn't",    U"wasn't",    U"weren't",
        U"don't", U"doesn't",  U"didn't", U"haven't",  U"hasn't",    U"hadn't",
        U"can't", U"couldn't", U"won't",  U"wouldn't", U"shouldn't", U"mustn't"};
    return table;
}

}  // namespace murmela
