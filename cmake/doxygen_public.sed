# Hides the private part of a class from Doxygen, friends included. The number of lines stays.
/^private:/,/^};/ { /^};/ !s/.*// }
