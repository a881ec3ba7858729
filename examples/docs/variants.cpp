#include "kernel/kelvariant.h"

#include <iostream>

using namespace Ombrin;

int main()
{
    const CkelVariant temperature = 215.5;
    const CkelVariant typed = " 215.5 "; // as somebody typed it
    const CkelVariant mistyped = "215,5";

    bool ok = false;
    std::cout << temperature.toInt(&ok) << ' ' << ok << '\n';           // rounded: halves away from zero
    std::cout << typed.toDouble(&ok) << ' ' << ok << '\n';              // blanks around a number are allowed
    std::cout << mistyped.toDouble(&ok) << ' ' << ok << '\n';           // 0, and not ok
    std::cout << CkelVariant("nan").toDouble(&ok) << ' ' << ok << '\n'; // a number, and ok
    std::cout << CkelVariant(-1).toUInt() << '\n';                      // between integers the bits are kept
    std::cout << CkelVariant(1e30).toInt(&ok) << ' ' << ok << '\n';     // out of range: the nearest limit, and not ok

    std::cout << CkelVariant(3).cmp(3.0) << ' ' << CkelVariant(3).cmp("3") << '\n'; // a text never equals a number
    std::cout << mistyped.canConvert(CkelVariant::Double) << ' ' << CkelVariant().isNull() << '\n';
    return 0;
}
