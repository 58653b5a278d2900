#include "device/downloads/media_content.h"

#include <gtest/gtest.h>

#include <string>

namespace {

bool isMedia(const std::string& head) {
    return downloads::beginsAsMedia(
        {reinterpret_cast<const std::uint8_t*>(head.data()), head.size()});
}

TEST(MediaContent, MediaFilesAreKnownByTheirBeginning) {
    const std::string length(4, '\7');
    for (const std::string& head :
         {std::string("ID3\4"), std::string("\xff\xfb\x90"), std::string("\xff\xf1\x50"),
          std::string("fLaC"), std::string("OggS"), "RIFF" + length + "WAVE",
          "FORM" + length + "AIFF", length + "ftypM4A ", std::string("\x1a\x45\xdf\xa3"),
          std::string(100, '\0') + "\xff\xfb"})
        EXPECT_TRUE(isMedia(head)) << head;
}

TEST(MediaContent, WhatElseComesIsNotTakenForMedia) {
    for (const std::string& head :
         {std::string(), std::string("ID"), std::string("<!DOCTYPE html>"),
          std::string("{\"a\":1}"), std::string("PK\3\4"), std::string("%PDF-1.7"),
          std::string("RIFF\7\7\7\7AVI"), std::string("\xff"), std::string("\xff\x1f"),
          std::string(4096, '\0')})
        EXPECT_FALSE(isMedia(head)) << head;
}

}  // namespace
