// The platform's property lists, by the readers and writers that host and device share. Any thread.
#pragma once

#include "platform/operating_system.h"

namespace device {

class PropertyListService final : public platform::PropertyLists {
public:
    std::optional<platform::Value> parse(const platform::Data& bytes,
                                         platform::OptionalError* error) override;
    std::optional<platform::Value> parse(platform::InputStream& stream,
                                         platform::OptionalError* error) override;
    std::optional<platform::Data> serialize(const platform::Value& value,
                                            platform::PropertyListFormat format,
                                            platform::OptionalError* error) override;
};

}  // namespace device
