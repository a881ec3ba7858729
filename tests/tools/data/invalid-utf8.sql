CREATE TABLE kel(ID, NameID, CommSource, DBSource, RW, Block, ValueT, Value, DefValue, Max, Min);
INSERT INTO kel VALUES(1,CAST(x'4BFC' AS TEXT),0,0,1,2,9,5.0,1.0,10.0,0.0);
