CREATE TABLE kel(ID, NameID, CommSource, DBSource, RW, Block, ValueT, Value, DefValue, Max, Min);
