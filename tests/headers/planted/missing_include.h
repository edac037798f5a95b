// A header that needs <string> and does not say so; the header test must refuse it.
#pragma once

struct Named {
    std::string name;
};
