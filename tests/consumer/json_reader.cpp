#include <datastorage/kelparsedbjson.h>

#include <fstream>
#include <iostream>

using namespace Ombrin;

int main()
{
    std::ofstream("dictionary.json") << R"({"kel":[{"ID":7,"NameID":"Cooling_Time_Set","ValueT":9,"Value":1.5}]})";
    CkelParseDBJson parser;
    const auto& items = parser.parse("dictionary.json");
    const bool right = items.size() == 1 && items.front().Value.toDouble() == 1.5;
    std::cout << (right ? "works\n" : "does not work\n");
    return right ? 0 : 1;
}
