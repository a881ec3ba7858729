CREATE TABLE kel(ID, NameID, CommSource, DBSource, RW, Block, ValueT, Value, DefValue, Max, Min);
INSERT INTO kel VALUES(1,'Zero',0,0,1,2,0,5.0,1.0,10.0,0.0);
INSERT INTO kel VALUES(2,'Fifteen',0,0,1,2,15,5.0,1.0,10.0,0.0);
INSERT INTO kel VALUES(3,'Word',0,0,1,2,16,5,1,10,0);
INSERT INTO kel VALUES(4,'Date',0,0,1,2,11,5,1,10,0);
