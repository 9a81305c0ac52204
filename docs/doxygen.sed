# Headers as Doxygen wants them: the first comment is the file's, and C's comments count.
1s|^///|/// @file\n///|
1s|^/\*|/** @file\n *|
/^\/\* ----/b
s|^( *)/\* |\1/** |
s|^(.*[^ /].*)/\* |\1/**< |
# To private classes Doxygen would link without having them.
/^private:/,/^\};/{/^\};/!s|.*||}
