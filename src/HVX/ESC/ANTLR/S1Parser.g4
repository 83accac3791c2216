// Parser of S1. The alternatives of `expr` are in precedence order, tightest
// binary operators first; ANTLR's numbering of them is the precedence table.
parser grammar S1Parser;

options {
    tokenVocab = S1Lexer;
}

prog: statement* EOF;

statement
    : TEXT
    | eval
    ;

eval
    : BEGIN_EVAL expr? END_EVAL          # Output
    | BEGIN_EVAL ID ASSIGN expr END_EVAL # Assignment
    ;

expr
    : OPEN_PAREN expr CLOSE_PAREN                            # Paren
    | ID OPEN_PAREN (expr (COMMA expr)*)? CLOSE_PAREN        # Call
    | op = (SUB | NOT) expr                                  # Unary
    | expr op = (BAND | BOR | BXOR) expr                     # Bin
    | expr op = (IDIV | DIV) expr                            # Bin
    | expr op = MUL expr                                     # Bin
    | expr op = (ADD | SUB) expr                             # Bin
    | expr op = (NEQ | EQ | GT | GTE | LT | LTE) expr        # Bin
    | expr op = (AND | OR | XOR) expr                        # Bin
    | number = (FLOAT | INT) unit = (KW_HZ | KW_KHZ | KW_MHZ | KW_GHZ) # Freq
    | ID                                                     # Id
    | STRING                                                 # Str
    | FLOAT                                                  # Float
    | INT                                                    # Int
    ;
