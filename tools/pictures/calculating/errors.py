"""What is wrong with the input, in one line for whoever called the program."""


class BadInput(Exception):
    pass
